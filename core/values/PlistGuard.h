#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velmo::core {

// Looks at a property list that someone else wrote before libplist reads it,
// and refuses what would make the reader blow up: libplist follows nesting by
// recursion (so deep nesting overflows the stack when it parses or frees), and
// copies a binary list's shared objects once per reference (so a few hundred
// bytes can expand to gigabytes). The look itself is a linear scan with no
// recursion and memory in proportion to the objects it is allowed to see.
class PlistGuard {
 public:
  PlistGuard() = delete;

  // Bytes: a profile or preference file is a few kilobytes; 10 MB leaves room
  // for any real one (icons and certificates included) and bounds what one
  // read may take.
  static constexpr std::uint64_t kLargestFile = 10 * 1024 * 1024;
  // Levels of containers: real policy nests four or five deep; 100 keeps
  // libplist's recursion far from the stack's end.
  static constexpr int kDeepestNesting = 100;
  // Values once shared objects are expanded: libplist's node and ours take
  // a few hundred bytes each, so this keeps a read under about 50 MB.
  static constexpr std::uint64_t kMostValues = 100'000;
  // Bytes of strings and data once shared objects are expanded: no more than
  // the largest file could spell out.
  static constexpr std::uint64_t kMostTextBytes = kLargestFile;

  // Why the bytes must not reach the parser, as a sentence a finding can end
  // with; nothing when they may. Bytes that aren't a property list at all
  // pass: the parser refuses them on its own.
  static std::optional<std::string> refusal(std::string_view bytes);
};

}  // namespace velmo::core
