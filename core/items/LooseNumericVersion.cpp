#include "core/items/LooseNumericVersion.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <charconv>
#include <string_view>
#include <vector>

namespace velmo::core {
namespace {

constexpr std::string_view kRawValueKey = "rawValue";

// Ill-formed bytes become U+FFFD, one per maximal ill-formed subsequence, so
// any byte string has an order.
std::u16string toUtf16(std::string_view bytes) {
  const auto* text = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const auto length = static_cast<std::int64_t>(bytes.size());
  std::u16string units;
  units.reserve(bytes.size());
  for (std::int64_t at = 0; at < length;) {
    UChar32 character = 0;
    U8_NEXT(text, at, length, character);
    if (character < 0) character = 0xFFFD;
    if (U16_LENGTH(character) == 1) {
      units.push_back(static_cast<char16_t>(character));
    } else {
      units.push_back(static_cast<char16_t>(U16_LEAD(character)));
      units.push_back(static_cast<char16_t>(U16_TRAIL(character)));
    }
  }
  return units;
}

bool isDigit(char16_t unit) { return unit >= u'0' && unit <= u'9'; }

// Reads the digit run starting at `at`, wrapping modulo 2^64 as the numeric
// compare this mirrors does, and leaves `at` just past it.
std::uint64_t readRun(std::u16string_view text, std::size_t& at) {
  std::uint64_t value = 0;
  for (; at < text.size() && isDigit(text[at]); ++at) {
    value = value * 10 + static_cast<std::uint64_t>(text[at] - u'0');
  }
  return value;
}

int numericCompare(std::u16string_view l, std::u16string_view r) {
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < l.size() && j < r.size()) {
    if (isDigit(l[i]) && isDigit(r[j])) {
      const auto left = readRun(l, i);
      const auto right = readRun(r, j);
      if (left != right) return left < right ? -1 : 1;
      continue;
    }
    if (l[i] != r[j]) return l[i] < r[j] ? -1 : 1;
    ++i;
    ++j;
  }
  if (i < l.size()) return 1;
  if (j < r.size()) return -1;
  return 0;
}

// Empty pieces are kept: "1..2" has three components, "" has one.
std::size_t componentCount(std::string_view raw) {
  return static_cast<std::size_t>(std::count(raw.begin(), raw.end(), '.')) + 1;
}

std::string padded(const std::string& raw, std::size_t missing) {
  std::string result = raw;
  for (std::size_t i = 0; i < missing; ++i) result += ".0";
  return result;
}

// Non-empty pieces only, for the hash and the major component.
std::vector<std::string_view> nonEmptyComponents(std::string_view raw) {
  std::vector<std::string_view> pieces;
  while (true) {
    const auto dot = raw.find('.');
    const auto piece = raw.substr(0, dot);
    if (!piece.empty()) pieces.push_back(piece);
    if (dot == std::string_view::npos) break;
    raw.remove_prefix(dot + 1);
  }
  return pieces;
}

// The whole piece must be the number: an optional sign, then ASCII digits
// only, in range of a signed 64-bit integer.
std::optional<std::int64_t> wholeInteger(std::string_view piece) {
  if (!piece.empty() && piece.front() == '+') {
    piece.remove_prefix(1);
    if (piece.empty() || piece.front() == '-') return std::nullopt;
  }
  std::int64_t value = 0;
  const auto* end = piece.data() + piece.size();
  const auto [stop, error] = std::from_chars(piece.data(), end, value, 10);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

void combine(std::size_t& seed, std::size_t value) {
  seed ^= value + static_cast<std::size_t>(0x9e3779b97f4a7c15ULL) + (seed << 6) + (seed >> 2);
}

}  // namespace

int LooseNumericVersion::compare(const LooseNumericVersion& l, const LooseNumericVersion& r) {
  const auto leftCount = componentCount(l.rawValue);
  const auto rightCount = componentCount(r.rawValue);
  if (leftCount == rightCount) return numericCompare(toUtf16(l.rawValue), toUtf16(r.rawValue));
  // Pad the shorter with ".0" components; splitting on "." and joining again
  // gives back the raw value, so appending is the same thing.
  const auto longest = std::max(leftCount, rightCount);
  return numericCompare(toUtf16(padded(l.rawValue, longest - leftCount)),
                        toUtf16(padded(r.rawValue, longest - rightCount)));
}

std::optional<std::int64_t> LooseNumericVersion::majorComponent() const {
  const auto pieces = nonEmptyComponents(rawValue);
  if (pieces.empty()) return std::nullopt;
  return wholeInteger(pieces.front());
}

void to_json(nlohmann::json& json, const LooseNumericVersion& version) {
  json = nlohmann::json::object();
  json[kRawValueKey] = version.rawValue;
}

void from_json(const nlohmann::json& json, LooseNumericVersion& version) {
  // get<std::string> throws for anything but a JSON string; nothing is
  // assigned until it has succeeded.
  version.rawValue = json.at(kRawValueKey).get<std::string>();
}

}  // namespace velmo::core

std::size_t std::hash<velmo::core::LooseNumericVersion>::operator()(
    const velmo::core::LooseNumericVersion& version) const noexcept {
  std::vector<std::int64_t> numbers;
  for (const auto piece : velmo::core::nonEmptyComponents(version.rawValue)) {
    numbers.push_back(velmo::core::wholeInteger(piece).value_or(0));
  }
  while (numbers.size() > 1 && numbers.back() == 0) numbers.pop_back();
  std::size_t seed = 0;
  velmo::core::combine(seed, std::hash<std::size_t>{}(numbers.size()));
  for (const auto number : numbers) velmo::core::combine(seed, std::hash<std::int64_t>{}(number));
  return seed;
}
