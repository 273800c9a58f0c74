#pragma once

#include <optional>

#include "core/URL.h"

namespace velmo::core {

// What a configured string turned out to be: a web address, a file, or
// neither. `web` and `file` carry their URL; `unknown` carries nothing.
class VelmoURLKind {
 public:
  enum class Case { web, file, unknown };

  static VelmoURLKind web(URL url);
  static VelmoURLKind file(URL url);
  static VelmoURLKind unknown();

  Case kind() const { return kind_; }
  // Present exactly for `web` and `file`.
  const std::optional<URL>& url() const { return url_; }

  friend bool operator==(const VelmoURLKind&, const VelmoURLKind&) = default;

 private:
  VelmoURLKind(Case kind, std::optional<URL> url);

  Case kind_;
  std::optional<URL> url_;
};

}  // namespace velmo::core
