// The memory work of a conversion and nothing else, for the Floor rows of
// StringConversionBenchmark: plain loops that read every input unit once
// and write every result unit once.

#ifndef MORV_BENCH_MEMORYFLOOR_H
#define MORV_BENCH_MEMORYFLOOR_H

#include <cstddef>

namespace floor_work {

// Writes out[k] = in[k] (cast: widened or narrowed) for every k below
// outCount, from the start of the input again where the result is longer;
// then reads the input units that were not used. Returns those units ORed
// together, for the caller to keep so that the reads stay.
unsigned CastEach(const unsigned char* in, std::size_t inCount, wchar_t* out, std::size_t outCount);
unsigned CastEach(const wchar_t* in, std::size_t inCount, char* out, std::size_t outCount);
unsigned CastEach(const char16_t* in, std::size_t inCount, char* out, std::size_t outCount);

// Every byte read once: their OR.
unsigned OrEach(const unsigned char* in, std::size_t count);

}  // namespace floor_work

#endif  // MORV_BENCH_MEMORYFLOOR_H
