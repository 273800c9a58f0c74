#include "mdm/ConfigurationProfile.h"

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>

#include <memory>

#include "core/values/PlistGuard.h"
#include "core/values/PropertyList.h"

namespace velmo::mdm {
namespace {

using Reading = ConfigurationProfile::Reading;

// The payload type of the older custom-settings form, which carries any
// domain's preferences under PayloadContent → domain → Forced.
constexpr std::string_view kCustomSettings = "com.apple.ManagedClient.preferences";

// The content a CMS signed-data envelope carries, or none when the bytes
// aren't one. The signature is not checked: lint reads what the profile sets,
// and the platform judges who signed it.
std::optional<std::string> signedContent(std::string_view bytes) {
  const auto* cursor = reinterpret_cast<const unsigned char*>(bytes.data());
  std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
      d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(bytes.size())), CMS_ContentInfo_free);
  std::optional<std::string> content;
  if (cms && OBJ_obj2nid(CMS_get0_type(cms.get())) == NID_pkcs7_signed) {
    ASN1_OCTET_STRING** inner = CMS_get0_content(cms.get());
    if (inner && *inner) {
      content.emplace(reinterpret_cast<const char*>(ASN1_STRING_get0_data(*inner)),
                      static_cast<std::size_t>(ASN1_STRING_length(*inner)));
    }
  }
  ERR_clear_error();  // A refusal is told by the result; the queue stays clean.
  return content;
}

const std::string* stringAt(const core::PlistDictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : found->second.getIf<std::string>();
}

template <typename T>
const T* valueAt(const core::PlistDictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : found->second.getIf<T>();
}

std::string payloadName(const core::PlistDictionary& payload, std::size_t index) {
  for (const auto* key : {"PayloadIdentifier", "PayloadDisplayName"}) {
    const auto* text = stringAt(payload, key);
    if (text && !text->empty()) return *text;
  }
  return "payload " + std::to_string(index + 1);
}

// The Payload* keys belong to the profile's own bookkeeping, never to a domain.
core::PlistDictionary withoutPayloadKeys(const core::PlistDictionary& payload) {
  core::PlistDictionary values;
  for (const auto& [key, value] : payload) {
    if (!key.starts_with("Payload")) values.emplace(key, value);
  }
  return values;
}

// PayloadContent → domain → Forced → [{mcx_preference_settings}]: the managed
// settings of each domain. Set-once and often settings are not managed, so
// the agent's managed store never holds them.
void readCustomSettings(const core::PlistDictionary& payload, const std::string& name,
                        Reading& reading) {
  const auto* domains = valueAt<core::PlistDictionary>(payload, "PayloadContent");
  if (!domains) return;
  for (const auto& [raw, settings] : *domains) {
    const auto domain = managedDomainFromRawValue(raw);
    const auto* forced = settings.getIf<core::PlistDictionary>();
    const auto* entries = forced ? valueAt<core::PlistArray>(*forced, "Forced") : nullptr;
    if (!domain) {
      reading.skipped.push_back({name, std::string(kCustomSettings) + " for " + raw});
      continue;
    }
    for (const auto& entry : entries ? *entries : core::PlistArray{}) {
      const auto* fields = entry.getIf<core::PlistDictionary>();
      const auto* values =
          fields ? valueAt<core::PlistDictionary>(*fields, "mcx_preference_settings") : nullptr;
      if (values) reading.payloads.push_back({name, *domain, *values});
    }
  }
}

void readPayloads(const core::PlistArray& content, Reading& reading) {
  for (std::size_t i = 0; i < content.size(); ++i) {
    const auto* payload = content[i].getIf<core::PlistDictionary>();
    if (!payload) continue;
    const std::string name = payloadName(*payload, i);
    const auto* type = stringAt(*payload, "PayloadType");
    const std::string shownType = type ? *type : "none";
    if (type && *type == kCustomSettings) {
      readCustomSettings(*payload, name, reading);
    } else if (const auto domain = type ? managedDomainFromRawValue(*type) : std::nullopt) {
      reading.payloads.push_back({name, *domain, withoutPayloadKeys(*payload)});
    } else {
      reading.skipped.push_back({name, shownType});
    }
  }
}

}  // namespace

ConfigurationProfile::Reading ConfigurationProfile::read(std::string_view bytes) {
  Reading reading;
  const auto refuse = [&](std::string why) {
    reading.form = Reading::Form::refused;
    reading.refusal = std::move(why);
    return reading;
  };
  if (bytes.size() > core::PlistGuard::kLargestFile) return refuse("larger than 10 MB: refused.");
  // DER's SEQUENCE: neither form of property list starts so. The envelope is
  // OpenSSL's to check; only the list inside goes past the guard to libplist.
  std::optional<std::string> unwrapped;
  if (!bytes.empty() && bytes.front() == '\x30') {
    unwrapped = signedContent(bytes);
    if (!unwrapped) return refuse("neither a property list nor a signed profile OpenSSL can read.");
    reading.wasSigned = true;
  }
  const std::string_view list = unwrapped ? std::string_view(*unwrapped) : bytes;
  if (auto refused = core::PlistGuard::refusal(list)) {
    return refuse((unwrapped ? "signed content " : "") + *refused);
  }
  const auto parsed = core::PropertyList::parse(list);
  const auto* root = parsed ? parsed->getIf<core::PlistDictionary>() : nullptr;
  if (!root) return reading;
  const auto* content = valueAt<core::PlistArray>(*root, "PayloadContent");
  const auto* type = stringAt(*root, "PayloadType");
  if (!content && !(type && *type == "Configuration")) {
    reading.form = Reading::Form::preferenceList;
    reading.root = *root;
    return reading;
  }
  reading.form = Reading::Form::profile;
  if (content) readPayloads(*content, reading);
  return reading;
}

}  // namespace velmo::mdm
