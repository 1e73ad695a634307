// Splitting a key path that a program was given ("a/b/c") into its
// components, with the checks that watchers and the settings tool make
// before a path reaches the store. Header-only, so that the tool, which
// links only the store's public interface, splits by the same code.
//
// The store's nodes split more leniently (at "/" and "\", keeping empty
// components): that is tokenize, in the store's KeyPath.h.

#ifndef MORV_COMMON_KEYPATHSPLITTER_H
#define MORV_COMMON_KEYPATHSPLITTER_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace morv_common {

// What SplitKeyPath found wrong with a key path, in the order it looks.
enum class KeyPathError {
  kNone,            // split
  kEmpty,           // "" where the rule wants at least one component
  kBadText,         // the rule's text check refused the path
  kBackslash,       // holds "\", which the store takes as a separator too
  kEmptyComponent,  // a leading, trailing or doubled "/" ("/a", "a/", "a//b")
};

// How strict SplitKeyPath is. Every rule splits at "/" alone and refuses
// "\" and empty components; "." and ".." are components like any other.
// Rules differ in the two members:
struct KeyPathRule {
  // Whether "" is the path of no components (the node itself) rather than
  // kEmpty.
  bool allowEmpty;
  // The text check of the whole path. Watchers take the store's rule for
  // names (well-formed UTF-8 without U+0000, IsCStringText); the tool takes
  // the public decoders' rule (mvcs::IsUTF8) and leaves the rest to the
  // store, which refuses what it cannot hold with its own message.
  bool (*isText)(const std::string& text);
};

// Splits `text` by `rule`. On kNone `components` receives the components
// (none for ""); otherwise it is left as it was.
inline KeyPathError SplitKeyPath(const std::string& text, const KeyPathRule& rule,
                                 std::vector<std::string>& components) {
  if (text.empty()) {
    if (!rule.allowEmpty) return KeyPathError::kEmpty;
    components.clear();
    return KeyPathError::kNone;
  }
  if (!rule.isText(text)) return KeyPathError::kBadText;
  if (text.find('\\') != std::string::npos) return KeyPathError::kBackslash;
  std::vector<std::string> split;
  for (std::size_t start = 0;;) {
    const std::size_t slash = text.find('/', start);
    const std::size_t end = slash == std::string::npos ? text.size() : slash;
    if (end == start) return KeyPathError::kEmptyComponent;
    split.push_back(text.substr(start, end - start));
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  components = std::move(split);
  return KeyPathError::kNone;
}

}  // namespace morv_common

#endif  // MORV_COMMON_KEYPATHSPLITTER_H
