#include "agent/items/UpdateStateFile.h"

namespace velmo::agent::items {

std::optional<std::vector<core::UpdateItem>> UpdateStateFile::load(
    const std::filesystem::path& url) {
  const auto text = files_.readFile(url);
  auto items = text.ok() ? core::UpdateItem::arrayFromJSONText(text.value()) : std::nullopt;
  if (text.ok() && !items) damaged_.keep(url, text.value(), "update state file");
  return items;
}

std::optional<std::string> UpdateStateFile::write(const std::vector<core::UpdateItem>& items,
                                                  const std::filesystem::path& url) {
  const auto failed = [](const platform::FileError& error) {
    return "Failed to save update state file: " + error.description + " (" + error.domain +
           ", code: " + std::to_string(error.code) + ")";
  };
  const auto text = core::UpdateItem::prettyJSONText(items);
  if (!text) {
    return failed({"The data couldn't be written because it isn't in the correct format.",
                   "NSCocoaErrorDomain", 4866});
  }
  if (const auto created = files_.createDirectories(url.parent_path()); created.error()) {
    return failed(*created.error());
  }
  logger_.debug("Writing update state to " + url.string());
  if (const auto written = files_.writeFileAtomically(url, *text); written.error()) {
    return failed(*written.error());
  }
  logger_.debug("Successfully saved update state to " + url.string());
  return std::nullopt;
}

}  // namespace velmo::agent::items
