// The XML rows of PListFormatBenchmark: the store's XML reader and writer
// beside libplist's on the same settings trees (see XmlFormatBenchmark.cpp).

#ifndef MORV_BENCH_XMLFORMATBENCHMARK_H
#define MORV_BENCH_XMLFORMATBENCHMARK_H

namespace bench {

// Registers the ReadXml and WriteXml benchmarks with Google Benchmark. Their
// sample files are made in memory when a benchmark first runs.
void RegisterXmlFormatBenchmarks();

}  // namespace bench

#endif  // MORV_BENCH_XMLFORMATBENCHMARK_H
