#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmo::core {

// A URL or relative reference, held as its components exactly as written
// (percent-encoded). It treats text as the Mac's URL type does: scheme and
// host keep their case, and nothing is touched until `standardized()`.
class URL {
 public:
  // RFC 3986 text, absolute or relative. As on current Macs, characters not
  // allowed in the path, query or fragment (a space, non-ASCII bytes, a lone
  // "%") are percent-encoded first; a malformed scheme, host or port gives
  // none.
  static std::optional<URL> fromString(std::string_view string);

  // "file://" and the path, percent-encoded; nothing is normalised and the
  // file system is not consulted. None unless the path begins with "/": a
  // root daemon has no current directory worth resolving against.
  static std::optional<URL> fileURLWithPath(std::string_view path);

  // Dot segments removed from the path, the way the Mac does it: a ".." that
  // would climb above the root is kept, "//" is not collapsed, "%2E" is not
  // decoded, and "~" is just a character. A URL with a scheme and an absolute
  // path but no authority gains an empty one ("file:/x" is "file:///x").
  URL standardized() const;

  // As written, case kept.
  const std::optional<std::string>& scheme() const { return scheme_; }
  // The scheme is "file", in any case.
  bool isFileURL() const;
  // As written: "" for a host-only URL.
  const std::string& percentEncodedPath() const { return path_; }
  // Percent-decoded, trailing slashes dropped ("/" itself stays).
  std::string path() const;
  // The whole URL as text.
  std::string absoluteString() const;

  friend bool operator==(const URL&, const URL&) = default;

 private:
  URL() = default;

  std::optional<std::string> scheme_;
  std::optional<std::string> authority_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
};

}  // namespace velmo::core
