#include "core/URL.h"

#include <uriparser/Uri.h>

#include <algorithm>
#include <vector>

namespace velmo::core {
namespace {

constexpr std::string_view kFileScheme = "file";
constexpr std::string_view kHexDigits = "0123456789ABCDEF";

// The text of a URI reference split by RFC 3986 Appendix B. For a valid
// reference this is exactly the grammar's split, and unlike uriparser's own
// recomposition it keeps every component as written (an IPv6 host included).
struct Components {
  std::optional<std::string_view> scheme;
  std::optional<std::string_view> authority;
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};

std::string_view takeUntil(std::string_view& text, std::string_view delimiters) {
  const auto end = std::min(text.find_first_of(delimiters), text.size());
  const auto taken = text.substr(0, end);
  text.remove_prefix(end);
  return taken;
}

Components split(std::string_view text) {
  Components components;
  const auto colon = text.find_first_of(":/?#");
  if (colon != std::string_view::npos && colon > 0 && text[colon] == ':') {
    components.scheme = text.substr(0, colon);
    text.remove_prefix(colon + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    components.authority = takeUntil(text, "/?#");
  }
  components.path = takeUntil(text, "?#");
  if (text.starts_with('?')) {
    text.remove_prefix(1);
    components.query = takeUntil(text, "#");
  }
  if (text.starts_with('#')) components.fragment = text.substr(1);
  return components;
}

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

// RFC 3986 pchar and "/", plus "?" where `query` (query and fragment).
bool isAllowed(char c, bool query) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
  return std::string_view("-._~!$&'()*+,;=:@/").find(c) != std::string_view::npos ||
         (query && c == '?');
}

// With `keepEscapes`, a well-formed "%XX" already in the text is left alone;
// a file path has no escapes, so there every "%" is a character.
std::string percentEncoded(std::string_view text, bool query, bool keepEscapes) {
  std::string encoded;
  encoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool escape = c == '%' && keepEscapes && i + 2 < text.size() && isHexDigit(text[i + 1]) &&
                        isHexDigit(text[i + 2]);
    if (escape || (c != '%' && isAllowed(c, query))) {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded += '%';
    encoded += kHexDigits[byte >> 4];
    encoded += kHexDigits[byte & 0x0f];
  }
  return encoded;
}

std::string percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && isHexDigit(text[i + 1]) &&
        isHexDigit(text[i + 2])) {
      const auto value = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
      decoded += static_cast<char>(value(text[i + 1]) * 16 + value(text[i + 2]));
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

bool isValidReference(const std::string& text) {
  UriUriA uri;
  const bool valid =
      uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) == URI_SUCCESS;
  if (valid) uriFreeUriMembersA(&uri);
  return valid;
}

// Segment by segment, so "//" stays an empty segment. A ".." with nothing
// left to remove (or only "..") is kept rather than dropped.
std::string removingDotSegments(std::string_view path) {
  const bool absolute = path.starts_with('/');
  if (absolute) path.remove_prefix(1);
  std::vector<std::string_view> input;
  while (true) {
    const auto slash = path.find('/');
    input.push_back(path.substr(0, slash));
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  std::vector<std::string_view> output;
  for (std::size_t i = 0; i < input.size(); ++i) {
    const bool last = i + 1 == input.size();
    const auto segment = input[i];
    if (segment == "." || (segment == ".." && !output.empty() && output.back() != "..")) {
      if (segment == "..") output.pop_back();
      // "a/." and "a/b/.." name a directory: the path keeps its final "/".
      if (last) output.push_back("");
      continue;
    }
    output.push_back(segment);
  }
  std::string result = absolute ? "/" : "";
  for (std::size_t i = 0; i < output.size(); ++i) {
    if (i > 0) result += '/';
    result += output[i];
  }
  return result;
}

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::optional<std::string> toString(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  return std::string(*text);
}

}  // namespace

std::optional<URL> URL::fromString(std::string_view string) {
  // The Mac makes no URL from empty text, though RFC 3986 allows it.
  if (string.empty()) return std::nullopt;
  const auto components = split(string);
  URL url;
  url.scheme_ = toString(components.scheme);
  url.authority_ = toString(components.authority);
  url.path_ = percentEncoded(components.path, false, true);
  if (components.query) url.query_ = percentEncoded(*components.query, true, true);
  if (components.fragment) url.fragment_ = percentEncoded(*components.fragment, true, true);
  // Only scheme and authority can still be malformed; uriparser judges them.
  if (!isValidReference(url.absoluteString())) return std::nullopt;
  return url;
}

std::optional<URL> URL::fileURLWithPath(std::string_view path) {
  if (!path.starts_with('/')) return std::nullopt;
  URL url;
  url.scheme_ = std::string(kFileScheme);
  url.authority_ = "";
  url.path_ = percentEncoded(path, false, false);
  return url;
}

URL URL::standardized() const {
  URL result = *this;
  result.path_ = removingDotSegments(path_);
  if (result.scheme_ && !result.authority_ && result.path_.starts_with('/')) {
    result.authority_ = "";
  }
  if (!result.scheme_ && !result.authority_) {
    // Dot removal may leave a relative reference that would read back as
    // something else: "//x" as a host, "a:b" as a scheme.
    if (result.path_.starts_with("//")) {
      result.path_.insert(0, "/.");
    } else if (result.path_.substr(0, result.path_.find('/')).find(':') != std::string::npos) {
      result.path_.insert(0, "./");
    }
  }
  return result;
}

bool URL::isFileURL() const { return scheme_ && equalsIgnoringAsciiCase(*scheme_, kFileScheme); }

std::string URL::path() const {
  std::string_view path = path_;
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return percentDecoded(path);
}

std::string URL::absoluteString() const {
  std::string text;
  if (scheme_) text += *scheme_ + ':';
  if (authority_) text += "//" + *authority_;
  text += path_;
  if (query_) text += '?' + *query_;
  if (fragment_) text += '#' + *fragment_;
  return text;
}

}  // namespace velmo::core
