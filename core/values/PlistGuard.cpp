#include "core/values/PlistGuard.h"

#include <algorithm>
#include <vector>

#include "core/values/BinaryPlistObjects.h"

namespace velmo::core {
namespace {

constexpr const char* kBefore = ": refused before parsing.";

std::string tooLarge() { return "larger than 10 MB: refused unread."; }
std::string tooDeep() { return std::string("nests deeper than 100 levels") + kBefore; }
std::string tooMany() { return std::string("would expand to more than 100,000 values") + kBefore; }

// Where the construct starting at `at` ends (one past its last byte), or none
// when it runs to the end. `from` is where its terminator may start earliest.
std::optional<std::size_t> endOf(std::string_view text, std::size_t from, std::string_view end) {
  const auto found = text.find(end, std::min(from, text.size()));
  if (found == std::string_view::npos) return std::nullopt;
  return found + end.size();
}

// A stretch that libplist might end elsewhere than this scan: a quote inside
// it could hide its end from a reader that honours quotes.
bool quotesAreAmbiguous(std::string_view stretch) {
  return stretch.find('\'') != std::string_view::npos ||
         std::count(stretch.begin(), stretch.end(), '"') % 2 != 0;
}

// Element depth and count in one pass, never more lenient than libplist's own
// reading: where the two could split a construct differently (a quote in a
// tag, "<!-->", "<?>", a document type with declarations inside), the file is
// refused rather than guessed at.
std::optional<std::string> xmlRefusal(std::string_view text) {
  const std::string ambiguous =
      std::string("XML that readers could split two ways (quotes or declarations in its tags)") +
      kBefore;
  int depth = 0;
  std::uint64_t values = 0;
  for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at)) {
    const auto rest = text.substr(at);
    std::optional<std::size_t> end;
    if (rest.starts_with("<!--")) {
      end = endOf(text, at + 2, "-->");
      if (end && *end < at + 7) return ambiguous;
    } else if (rest.starts_with("<![CDATA[")) {
      end = endOf(text, at + 9, "]]>");
    } else if (rest.starts_with("<?")) {
      end = endOf(text, at + 1, "?>");
      if (end && (*end == at + 3 || quotesAreAmbiguous(text.substr(at, *end - at)))) {
        return ambiguous;
      }
    } else {
      end = endOf(text, at + 1, ">");
      if (!end) break;
      const auto tag = text.substr(at, *end - at);
      if (quotesAreAmbiguous(tag) || (tag.starts_with("<!") && tag.find('[') != tag.npos)) {
        return ambiguous;
      }
      if (tag.starts_with("</")) {
        depth = std::max(0, depth - 1);
      } else if (!tag.starts_with("<!")) {
        if (++values > PlistGuard::kMostValues) return tooMany();
        if (!tag.ends_with("/>") && ++depth > PlistGuard::kDeepestNesting) return tooDeep();
      }
    }
    if (!end) break;  // Unterminated: the parser refuses it.
    at = *end;
  }
  return std::nullopt;
}

// What an object becomes once every shared reference is copied, as libplist
// copies it.
struct Expansion {
  std::uint64_t values = 0;
  std::uint64_t textBytes = 0;
  int height = 0;

  void add(const Expansion& child) {
    values = std::min(values + child.values, PlistGuard::kMostValues + 1);
    textBytes = std::min(textBytes + child.textBytes, PlistGuard::kMostTextBytes + 1);
    height = std::max(height, child.height + 1);
  }
  std::optional<std::string> refusal() const {
    if (values > PlistGuard::kMostValues) return tooMany();
    if (textBytes > PlistGuard::kMostTextBytes) {
      return std::string("would expand to more than 10 MB of strings and data") + kBefore;
    }
    return std::nullopt;
  }
};

std::uint64_t ownTextBytes(const BinaryPlistObjects::Object& object) {
  using O = BinaryPlistObjects;
  const std::uint64_t cap = PlistGuard::kMostTextBytes + 1;
  if (object.kind == O::kData || object.kind == O::kAscii) return std::min(object.length, cap);
  // UTF-16 becomes up to three bytes of UTF-8 per unit.
  if (object.kind == O::kUtf16) return std::min(object.length, cap) * 3;
  return 0;
}

class BinaryWalk {
 public:
  explicit BinaryWalk(const BinaryPlistObjects& objects)
      : objects_(objects),
        done_(static_cast<std::size_t>(objects.count())),
        state_(static_cast<std::size_t>(objects.count()), State::unseen) {}

  // Depth first from the top object, on a stack of its own: each object is
  // expanded once and its expansion remembered for every other reference.
  std::optional<std::string> refusal() {
    if (objects_.topObject() >= objects_.count()) return std::nullopt;  // The parser refuses it.
    if (auto refused = enter(objects_.topObject())) return refused;
    while (!stack_.empty()) {
      Frame& frame = stack_.back();
      if (frame.next < BinaryPlistObjects::referenceCount(frame.object)) {
        const auto ref = objects_.reference(frame.object.contents, frame.next++);
        if (!ref || *ref >= objects_.count()) return unfollowable();
        const auto index = static_cast<std::size_t>(*ref);
        if (state_[index] == State::open) return unfollowable();
        if (state_[index] == State::unseen) {
          if (auto refused = enter(index)) return refused;
          continue;
        }
        frame.sum.add(done_[index]);
      } else {
        const auto index = static_cast<std::size_t>(frame.index);
        done_[index] = frame.sum;
        state_[index] = State::done;
        stack_.pop_back();
        if (!stack_.empty()) stack_.back().sum.add(done_[index]);
      }
      if (stack_.empty()) break;
      const Expansion& sum = stack_.back().sum;
      if (static_cast<int>(stack_.size()) - 1 + sum.height >= PlistGuard::kDeepestNesting) {
        return tooDeep();
      }
      if (auto refused = sum.refusal()) return refused;
    }
    return std::nullopt;
  }

 private:
  enum class State : std::uint8_t { unseen, open, done };
  struct Frame {
    std::uint64_t index;
    BinaryPlistObjects::Object object;
    std::uint64_t next;
    Expansion sum;
  };

  static std::string unfollowable() {
    return std::string(
               "a binary property list whose objects can't be followed or contain "
               "themselves") +
           kBefore;
  }

  std::optional<std::string> enter(std::size_t index) {
    const auto at = objects_.objectAt(index);
    const auto object = at ? objects_.header(*at) : std::nullopt;
    if (!object) return unfollowable();
    if (stack_.size() >= static_cast<std::size_t>(PlistGuard::kDeepestNesting)) return tooDeep();
    state_[index] = State::open;
    stack_.push_back(Frame{index, *object, 0, Expansion{1, ownTextBytes(*object), 0}});
    return stack_.back().sum.refusal();
  }

  const BinaryPlistObjects& objects_;
  std::vector<Expansion> done_;
  std::vector<State> state_;
  std::vector<Frame> stack_;
};

}  // namespace

std::optional<std::string> PlistGuard::refusal(std::string_view bytes) {
  if (bytes.size() > kLargestFile) return tooLarge();
  if (!bytes.starts_with("bplist00")) return xmlRefusal(bytes);
  const auto objects = BinaryPlistObjects::read(bytes);
  if (!objects) return std::nullopt;  // The parser refuses it.
  // Even unreachable, each object costs the walk its bookkeeping.
  if (objects->count() > kMostValues) return tooMany();
  return BinaryWalk(*objects).refusal();
}

}  // namespace velmo::core
