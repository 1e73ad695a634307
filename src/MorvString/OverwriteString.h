// Sizing a string for a result that is written straight into it, without
// first filling it with zeros that the writer then overwrites (resize does
// that fill; for a result of megabytes it costs as much as the conversion).
//
// C++23's resize_and_overwrite leaves the new units unset; the files that
// use this header are compiled as C++23 where the compiler can (see
// CMakeLists.txt). Elsewhere the string is resized, zero-filled, first: the
// same results, only slower.

#ifndef MORVSTRING_OVERWRITESTRING_H
#define MORVSTRING_OVERWRITESTRING_H

#include <cstddef>
#include <string>

namespace mvcs {

// Gives `text` room for `count` units and calls write(data), where `data`
// points at its first unit; write fills the units it keeps from there and
// returns how many that is (at most `count`), which becomes the size. The
// units below the old size are kept as they were; the others hold anything
// until written. `write` must not throw. The string's allocation may throw
// std::bad_alloc (or std::length_error), leaving `text` as it was.
template <typename String, typename Write>
void OverwriteString(String& text, std::size_t count, Write write) {
#if defined(__cpp_lib_string_resize_and_overwrite)
  // The library may pass a larger room than asked for; only `count` counts.
  text.resize_and_overwrite(count,
                            [&write](typename String::value_type* data, std::size_t) noexcept {
                              return static_cast<std::size_t>(write(data));
                            });
#else
  text.resize(count);
  text.resize(write(&text[0]));
#endif
}

}  // namespace mvcs

#endif  // MORVSTRING_OVERWRITESTRING_H
