#include "core/items/ToolIdentifier.h"

namespace velmo::core {
namespace {

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

}  // namespace

bool ToolIdentifier::isValid(std::string_view text) {
  if (text.empty() || text.size() > kMaxLength) return false;
  if (!isLetterOrDigit(text.front()) && text.front() != '_') return false;
  for (char c : text) {
    if (!isLetterOrDigit(c) && c != '.' && c != '_' && c != '+' && c != '-') return false;
  }
  return true;
}

std::vector<std::string> ToolIdentifier::admitted(const std::vector<std::string>& ids,
                                                  std::string_view key,
                                                  const CustomLogger& logger) {
  std::vector<std::string> valid;
  valid.reserve(ids.size());
  for (const auto& id : ids) {
    if (isValid(id)) {
      valid.push_back(id);
    } else {
      // Cut so that one bad entry can't make a huge line.
      const std::string shown = id.substr(0, kMaxLength);
      logger.warning("Ignoring \"" + shown + (id.size() > kMaxLength ? "…" : "") + "\" in " +
                     std::string(key) + ": not a valid catalogue ID.");
    }
  }
  return valid;
}

}  // namespace velmo::core
