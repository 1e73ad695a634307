// Random property-list trees for the format's tests: every kind of value
// (sets too, unless asked not to), text with and without non-ASCII
// characters, dictionaries and arrays nested a few levels deep, drawn from
// a seeded generator so that each test sees the same trees every run.

#ifndef MORV_TESTS_RANDOMPLISTTREES_H
#define MORV_TESTS_RANDOMPLISTTREES_H

#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "format/PListTree.h"

namespace randomtrees {

using mvcs::PListArray;
using mvcs::PListArrayRef;
using mvcs::PListDictionary;
using mvcs::PListDictionaryRef;
using mvcs::PListValue;

typedef mvtl::RefCountedPtr<PListDictionary> Tree;

// Makes trees: the same sequence for the same seed. `sets`: whether some
// arrays are sets; `zeros`: whether keys and strings may hold U+0000.
class RandomTrees {
 public:
  explicit RandomTrees(unsigned seed, bool sets = true, bool zeros = false)
      : m_random(seed), m_sets(sets), m_zeros(zeros) {}

  Tree Make() {
    Tree tree(new mvcs::PListDictionary);
    Fill(*tree, 1);
    return tree;
  }

 private:
  std::size_t Pick(std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(m_random);
  }

  std::string Text() {
    static const char* const kWords[] = {
        "Count", "Name", "k", "", "\xC3\xA9t\xC3\xA9", "\xE4\xB8\x96", "\xF0\x9F\x8C\x8D", "Path"};
    std::string text = kWords[Pick(8)];
    if (Pick(3) == 0) text += std::to_string(Pick(1000));
    if (Pick(10) == 0) text += std::string(Pick(40), 'x');
    // U+0000 between any two characters of a quarter of the keys and
    // strings.
    if (m_zeros && Pick(4) == 0) {
      std::size_t at = Pick(text.size() + 1);
      while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
      text.insert(at, 1, '\0');
    }
    return text;
  }

  void Fill(PListDictionary& dictionary, std::size_t depth) {
    static const std::size_t kSizes[] = {0, 1, 2, 5, 14, 15, 16, 30};
    const std::size_t size = kSizes[Pick(8)];
    for (std::size_t i = 0; i < size; ++i) {
      // The value is drawn before its name, in this order on every
      // compiler and processor (the order of a call's arguments is not
      // fixed), so that a seed gives the same trees everywhere.
      PListValue value = Value(depth);
      dictionary.Set(Text(), std::move(value));
    }
  }

  PListValue Value(std::size_t depth) {
    const std::size_t kind = Pick(depth < 4 ? 11 : 9);
    switch (kind) {
      case 0: {
        static const long long kIntegers[] = {0,
                                              1,
                                              255,
                                              256,
                                              65535,
                                              65536,
                                              4294967295LL,
                                              4294967296LL,
                                              -1,
                                              std::numeric_limits<long long>::min(),
                                              std::numeric_limits<long long>::max()};
        return mvcs::PListInteger{kIntegers[Pick(11)], false};
      }
      case 1:
        return mvcs::PListInteger{-static_cast<long long>(Pick(1000)) - 1, true};  // 2^64 - n
      case 2: {
        static const double kReals[] = {0.0,
                                        -0.0,
                                        0.1,
                                        1e300,
                                        5e-324,
                                        std::numeric_limits<double>::infinity(),
                                        std::numeric_limits<double>::quiet_NaN()};
        return mvcs::PListReal{kReals[Pick(7)]};
      }
      case 3:
        return Pick(2) == 0;
      case 4:
        return Text();
      case 5: {
        mvcs::PListData data(Pick(300));
        for (unsigned char& byte : data) byte = static_cast<unsigned char>(Pick(256));
        return data;
      }
      case 6:
        return mvcs::PListDate{static_cast<double>(Pick(1000000000)) / 7};
      case 7:
        return mvcs::PListUid{Pick(2) == 0 ? Pick(300) : ~static_cast<std::uint64_t>(Pick(300))};
      case 8:
        return Text();
      case 9: {
        PListDictionaryRef child;
        child.Assign(new PListDictionary);
        Fill(*child, depth + 1);
        return child;
      }
      default: {
        auto array = std::make_shared<PListArray>();
        array->isSet = m_sets && Pick(4) == 0;
        const std::size_t size = Pick(17);
        for (std::size_t i = 0; i < size; ++i) array->items.push_back(Value(depth + 1));
        return PListArrayRef(std::move(array));
      }
    }
  }

  std::mt19937 m_random;
  bool m_sets;
  bool m_zeros;
};

}  // namespace randomtrees

#endif  // MORV_TESTS_RANDOMPLISTTREES_H
