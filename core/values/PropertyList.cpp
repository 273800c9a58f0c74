#include "core/values/PropertyList.h"

#include <plist/plist.h>

#include <chrono>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

#include "core/values/BinaryPlistObjects.h"

namespace velmo::core {
namespace {

struct PlistDeleter {
  void operator()(plist_t node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, PlistDeleter>;

// libplist counts dates in seconds and microseconds from 2001-01-01 UTC.
constexpr std::chrono::seconds kReferenceDate{978307200};
// Deeper nesting is refused rather than followed: a hostile file must not
// exhaust the stack.
constexpr int kDeepestNesting = 64;

bool isNegative(plist_t node) {
  Node copy(plist_copy(node));
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(copy.get(), &text, &length);
  const bool negative =
      text && std::string_view(text, length).find("<integer>-") != std::string_view::npos;
  std::free(text);
  return negative;
}

// The keys of the dictionary at `at`, each key object once: `checked` holds
// those already seen.
bool dictionaryKeysAreSafe(const BinaryPlistObjects& objects, std::uint64_t at,
                           std::vector<bool>& checked) {
  const auto object = objects.header(at);
  if (!object) return false;
  for (std::uint64_t k = 0; k < object->length; ++k) {
    const auto ref = objects.reference(object->contents, k);
    if (!ref || *ref >= objects.count()) return false;
    if (checked[static_cast<std::size_t>(*ref)]) continue;
    const auto keyAt = objects.objectAt(*ref);
    const auto key = keyAt ? objects.header(*keyAt) : std::nullopt;
    if (!key || !objects.keyIsSafe(*key)) return false;
    checked[static_cast<std::size_t>(*ref)] = true;
  }
  return true;
}

// libplist aborts the process (a failed assertion) when it hands out a
// dictionary key with a NUL inside, and only a binary list can hold one. So
// before libplist reads a binary list, every key of every dictionary is looked
// at here; a file with such a key, or one whose keys can't be found, is refused
// as malformed. Each key object is checked once, however many dictionaries
// share it.
bool binaryKeysAreSafe(std::string_view bytes) {
  if (bytes.substr(0, 8) != "bplist00") return true;  // Not binary: the XML reader copes.
  const auto objects = BinaryPlistObjects::read(bytes);
  if (!objects) return false;
  std::vector<bool> checked(static_cast<std::size_t>(objects->count()));
  for (std::uint64_t index = 0; index < objects->count(); ++index) {
    const auto at = objects->objectAt(index);
    const auto object = at ? objects->header(*at) : std::nullopt;
    if (!object) return false;
    if (object->kind != BinaryPlistObjects::kDictionary) continue;  // Only dictionaries have keys.
    if (!dictionaryKeysAreSafe(*objects, *at, checked)) return false;
  }
  return true;
}

std::optional<PlistValue> fromNode(plist_t node, int depth);

// libplist keeps negative integers as their two's complement, and marks them
// only in its own output; a value past the signed range that isn't negative
// has no 64-bit signed form and is left out.
std::optional<PlistValue> integerFromNode(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) &&
      !isNegative(node)) {
    return std::nullopt;
  }
  return PlistValue(static_cast<std::int64_t>(value));
}

PlistValue stringFromNode(plist_t node) {
  // By pointer and length: the copying getter asserts on an embedded NUL.
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return PlistValue(text ? std::string(text, length) : std::string());
}

PlistValue dateFromNode(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t micros = 0;
  plist_get_date_val(node, &seconds, &micros);
  return PlistValue(PlistDate{TimePoint(kReferenceDate) + std::chrono::seconds(seconds) +
                              std::chrono::microseconds(micros)});
}

PlistValue dataFromNode(plist_t node) {
  std::uint64_t length = 0;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(plist_get_data_ptr(node, &length));
  return PlistValue(bytes ? PlistData(bytes, bytes + length) : PlistData());
}

PlistValue arrayFromNode(plist_t node, int depth) {
  PlistArray array;
  const std::uint32_t size = plist_array_get_size(node);
  for (std::uint32_t i = 0; i < size; ++i) {
    auto element = fromNode(plist_array_get_item(node, i), depth + 1);
    if (element) array.push_back(std::move(*element));
  }
  return PlistValue(std::move(array));
}

PlistValue dictionaryFromNode(plist_t node, int depth) {
  PlistDictionary dictionary;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  for (;;) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &key, &item);
    if (!key) break;
    std::string name = key;
    std::free(key);
    auto value = fromNode(item, depth + 1);
    if (value) dictionary.insert_or_assign(std::move(name), std::move(*value));
  }
  std::free(iterator);
  return PlistValue(std::move(dictionary));
}

// A value with no form of ours (a UID, an integer past 64 bits, nesting too
// deep) is left out of its container rather than spoiling the whole file.
std::optional<PlistValue> fromNode(plist_t node, int depth) {
  if (!node || depth > kDeepestNesting) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return PlistValue(value != 0);
    }
    case PLIST_UINT:
      return integerFromNode(node);
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return PlistValue(value);
    }
    case PLIST_STRING:
      return stringFromNode(node);
    case PLIST_DATE:
      return dateFromNode(node);
    case PLIST_DATA:
      return dataFromNode(node);
    case PLIST_ARRAY:
      return arrayFromNode(node, depth);
    case PLIST_DICT:
      return dictionaryFromNode(node, depth);
    default:
      // Keys as values and UIDs (keyed archives) have no place in our files.
      return std::nullopt;
  }
}

Node toNode(const PlistValue& value) {
  const auto& storage = value.storage();
  if (auto* b = std::get_if<bool>(&storage)) return Node(plist_new_bool(*b));
  if (auto* i = std::get_if<std::int64_t>(&storage)) {
    return Node(plist_new_uint(static_cast<std::uint64_t>(*i)));
  }
  if (auto* d = std::get_if<double>(&storage)) return Node(plist_new_real(*d));
  if (auto* s = std::get_if<std::string>(&storage)) return Node(plist_new_string(s->c_str()));
  if (auto* date = std::get_if<PlistDate>(&storage)) {
    const auto since =
        std::chrono::floor<std::chrono::seconds>(date->value - TimePoint(kReferenceDate));
    return Node(plist_new_date(static_cast<std::int32_t>(since.count()), 0));
  }
  if (auto* data = std::get_if<PlistData>(&storage)) {
    return Node(plist_new_data(reinterpret_cast<const char*>(data->data()), data->size()));
  }
  if (auto* array = std::get_if<PlistArray>(&storage)) {
    Node node(plist_new_array());
    for (const auto& element : *array)
      plist_array_append_item(node.get(), toNode(element).release());
    return node;
  }
  Node node(plist_new_dict());
  for (const auto& [key, element] : *value.getIf<PlistDictionary>()) {
    plist_dict_set_item(node.get(), key.c_str(), toNode(element).release());
  }
  return node;
}

}  // namespace

std::optional<PlistValue> PropertyList::parse(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  if (!binaryKeysAreSafe(bytes)) return std::nullopt;
  plist_t root = nullptr;
  plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  Node owned(root);
  return fromNode(root, 0);
}

std::optional<std::string> PropertyList::xml(const PlistValue& root, std::string* failure) {
  Node node = toNode(root);
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(node.get(), &text, &length);
  if (!text) {
    if (failure) *failure = "the property list could not be serialised";
    return std::nullopt;
  }
  std::string result(text, length);
  std::free(text);
  return result;
}

}  // namespace velmo::core
