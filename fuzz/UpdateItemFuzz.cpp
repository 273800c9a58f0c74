// Any text as an update item or a list of them, as they arrive from the tool,
// the notifier and the state file: decoded or refused, never a crash; what
// decodes encodes and decodes again to the same items. The same bytes, cut in
// two, also exercise the version order.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/items/LooseNumericVersion.h"
#include "core/items/ToolIdentifier.h"
#include "core/items/UpdateItem.h"

namespace {

using velmo::core::LooseNumericVersion;
using velmo::core::UpdateItem;

bool sameFields(const UpdateItem& a, const UpdateItem& b) {
  return a.id == b.id && a.friendlyName == b.friendlyName && a.targetVersion == b.targetVersion &&
         a.installedVersion == b.installedVersion && a.installPath == b.installPath &&
         a.respectDnd == b.respectDnd && a.respectMeetings == b.respectMeetings &&
         a.serialInstallRequired == b.serialInstallRequired;
}

bool sameItems(const std::vector<UpdateItem>& a, const std::vector<UpdateItem>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameFields);
}

void checkItem(std::string_view text) {
  const auto item = UpdateItem::fromJSONText(text);
  if (!item) return;
  // Nothing decoded can put a flag or a NUL on the tool's command line.
  if (!velmo::core::ToolIdentifier::isValid(item->id)) std::abort();
  // Decoded strings are valid UTF-8, so encoding can't fail.
  const auto encoded = item->jsonText();
  if (!encoded) std::abort();
  const auto again = UpdateItem::fromJSONText(*encoded);
  if (!again || !sameFields(*item, *again)) std::abort();
}

void checkArray(std::string_view text) {
  const auto items = UpdateItem::arrayFromJSONText(text);
  if (!items) return;
  for (const auto& encoded : {UpdateItem::jsonText(*items), UpdateItem::prettyJSONText(*items)}) {
    if (!encoded) std::abort();
    const auto again = UpdateItem::arrayFromJSONText(*encoded);
    if (!again || !sameItems(*items, *again)) std::abort();
  }
}

// Digits and dots only, with no digit run past 19 significant digits. Beyond
// 64 bits the order wraps ("18446744073709551617" equals "1") while the hash
// counts an out-of-range component as 0, so equality and hash part ways there.
bool plainNumeric(std::string_view raw) {
  std::size_t significant = 0;
  bool leading = true;
  for (const char c : raw) {
    if (c == '.') {
      significant = 0;
      leading = true;
    } else if (c >= '0' && c <= '9') {
      leading = leading && c == '0';
      if (!leading && ++significant > 19) return false;
    } else {
      return false;
    }
  }
  return true;
}

void checkVersions(std::string_view text) {
  const auto half = text.size() / 2;
  const LooseNumericVersion a(std::string(text.substr(0, half)));
  const LooseNumericVersion b(std::string(text.substr(half)));
  const int forward = LooseNumericVersion::compare(a, b);
  if (forward < -1 || forward > 1) std::abort();
  if (forward != -LooseNumericVersion::compare(b, a)) std::abort();
  if (LooseNumericVersion::compare(a, a) != 0) std::abort();
  if (forward == 0 && plainNumeric(a.rawValue) && plainNumeric(b.rawValue) &&
      std::hash<LooseNumericVersion>{}(a) != std::hash<LooseNumericVersion>{}(b)) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  checkItem(text);
  checkArray(text);
  checkVersions(text);
  return 0;
}
