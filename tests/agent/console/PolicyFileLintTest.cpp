// Profiles as administrators write them, in each form the platform takes, and
// the files a hostile account could hand to lint. Windows are judged in UTC
// from Tuesday 2026-03-10.
#include "agent/console/PolicyFileLint.h"

#include <fcntl.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <plist/plist.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "backends/fake/FakeFileManager.h"
#include "backends/linux/PosixFileManager.h"
#include "tests/support/ProfileXml.h"

namespace velmo::agent::console {
namespace {

using Severity = PolicyLint::Severity;

const platform::TimePoint kNow{std::chrono::seconds(1773151509)};

using testing::payload;
using testing::profile;

std::string binary(const std::string& xml) {
  plist_t root = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &root);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(root, &bytes, &length);
  std::string result(bytes, length);
  std::free(bytes);
  plist_free(root);
  return result;
}

// Signed with a throwaway key and certificate, the content carried inside.
std::string signedBy(const std::string& content) {
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
  X509_set_pubkey(certificate.get(), key.get());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  std::unique_ptr<BIO, decltype(&BIO_free)> in(
      BIO_new_mem_buf(content.data(), static_cast<int>(content.size())), BIO_free);
  std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
      CMS_sign(certificate.get(), key.get(), nullptr, in.get(), CMS_BINARY), CMS_ContentInfo_free);
  unsigned char* der = nullptr;
  const int length = i2d_CMS_ContentInfo(cms.get(), &der);
  std::string result(reinterpret_cast<char*>(der), static_cast<std::size_t>(length));
  OPENSSL_free(der);
  return result;
}

const std::string kAgentPayload =
    payload("com.marvenith.velmo-agent", "com.example.velmo.agent",
            "<key>RunInterval</key><integer>3600</integer><key>RunIntreval</key><integer>7200"
            "</integer><key>InstallOrUpdate</key><array><string>firefox</string></array>");

struct Finding {
  std::string payload;
  std::string key;
  Severity severity;
  std::string fragment;
};

struct ProfileCase {
  const char* name;
  std::string bytes;
  std::vector<Finding> findings;
  int status;
};

void PrintTo(const ProfileCase& c, std::ostream* os) { *os << c.name; }

class Profile : public ::testing::TestWithParam<ProfileCase> {};

TEST_P(Profile, ChecksEachPayloadOfTheAgentsDomains) {
  const auto& c = GetParam();
  platform::fake::FakeFileManager files;
  files.addFile("/p/velmo.mobileconfig", c.bytes);
  const auto found = PolicyFileLint::lintFile(files, "/p/velmo.mobileconfig", kNow, "UTC");
  std::string all;
  for (const auto& each : found) all += PolicyLint::line(each) + "\n";
  ASSERT_EQ(found.size(), c.findings.size()) << all;
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(found[i].payload, c.findings[i].payload) << all;
    EXPECT_EQ(found[i].key, c.findings[i].key) << all;
    EXPECT_EQ(found[i].severity, c.findings[i].severity) << all;
    EXPECT_NE(found[i].text.find(c.findings[i].fragment), std::string::npos) << all;
  }
  EXPECT_EQ(PolicyLint::exitStatus(found), c.status);
}

const Finding kTypo{"com.example.velmo.agent", "RunIntreval", Severity::warning,
                    "did you mean RunInterval?"};

INSTANTIATE_TEST_SUITE_P(
    Table, Profile,
    ::testing::Values(
        ProfileCase{"XmlTypoWithItsNearestKey", profile(kAgentPayload), {kTypo}, 1},
        ProfileCase{"Binary", binary(profile(kAgentPayload)), {kTypo}, 1},
        ProfileCase{"SignedIsReadUnverified",
                    signedBy(profile(kAgentPayload)),
                    {{"", "", Severity::note, "signature was not verified"}, kTypo},
                    1},
        ProfileCase{
            "CustomSettingsFormNamedByDisplayName",
            profile(payload(
                "com.apple.ManagedClient.preferences", "",
                "<key>PayloadContent</key><dict><key>com.marvenith.velmo-agent</key><dict><key>"
                "Forced</key><array><dict><key>mcx_preference_settings</key><dict><key>UpdateMAS"
                "</key><string>true</string></dict></dict></array></dict><key>com.example.other"
                "</key><dict/></dict>")),
            {{"Shown", "UpdateMAS", Severity::warning, "a string where a Boolean belongs"},
             {"Shown", "", Severity::note,
              "com.apple.ManagedClient.preferences for "
              "com.example.other"}},
            1},
        ProfileCase{"TwoPayloadsOfOneDomainAgree",
                    profile(payload("com.marvenith.velmo-agent", "a",
                                    "<key>RunInterval</key><integer>3600</integer>") +
                            payload("com.marvenith.velmo-agent", "b",
                                    "<key>RunInterval</key><integer>3600</integer>")),
                    {},
                    0},
        ProfileCase{"TwoPayloadsOfOneDomainDisagree",
                    profile(payload("com.marvenith.velmo-agent", "a",
                                    "<key>RunInterval</key><integer>3600</integer>") +
                            payload("com.marvenith.velmo-agent", "b",
                                    "<key>RunInterval</key><integer>600</integer>")),
                    {{"b", "RunInterval", Severity::warning, "payloads a and b: which one"}},
                    1},
        ProfileCase{"ForeignPayloadIsANote",
                    profile(payload("com.apple.wifi.managed", "com.example.wifi",
                                    "<key>SSID_STR</key><string>office</string>")),
                    {{"com.example.wifi", "", Severity::note, "com.apple.wifi.managed"}},
                    0},
        ProfileCase{"AListThatIsNoProfile",
                    "<plist><dict><key>RunInterval</key><integer>60</integer></dict></plist>",
                    {{"", "", Severity::error, "not a configuration profile"}},
                    2}),
    [](const auto& info) { return std::string(info.param.name); });

// Real files, as lint meets them: each must be refused before libplist sees
// it, promptly and without the memory it asks for.
struct HostileCase {
  const char* name;
  std::function<void(int fd)> write;
  std::string fragment;
};

void PrintTo(const HostileCase& c, std::ostream* os) { *os << c.name; }

void writeAll(int fd, const std::string& bytes) {
  ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

std::string deepXml() {
  std::string text = "<plist version=\"1.0\">";
  for (int i = 0; i < 200'000; ++i) text += "<array>";
  for (int i = 0; i < 200'000; ++i) text += "</array>";
  return text + "</plist>";
}

// Each array holds the next one twice: 40 levels, 2^41 values once expanded.
std::string sharedBinary() {
  std::string bytes = "bplist00";
  std::string offsets;
  for (int i = 0; i <= 40; ++i) {
    offsets += static_cast<char>(bytes.size());
    bytes += i < 40 ? std::string{'\xA2', static_cast<char>(i + 1), static_cast<char>(i + 1)}
                    : std::string{'\xA0'};
  }
  const auto table = static_cast<char>(bytes.size());
  return bytes + offsets + std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + "\x29" +
         std::string(8, '\0') + std::string(7, '\0') + table;
}

class Hostile : public ::testing::TestWithParam<HostileCase> {};

TEST_P(Hostile, FileIsRefusedBeforeParsing) {
  char folder[] = "/tmp/velmo-lint-XXXXXX";
  ASSERT_NE(::mkdtemp(folder), nullptr);
  const std::filesystem::path path = std::filesystem::path(folder) / "hostile.mobileconfig";
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  GetParam().write(fd);
  ::close(fd);
  const platform::linux::PosixFileManager files;
  const auto found = PolicyFileLint::lintFile(files, path, kNow, "UTC");
  std::filesystem::remove_all(folder);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].severity, Severity::error);
  EXPECT_NE(found[0].text.find(GetParam().fragment), std::string::npos) << found[0].text;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Hostile,
    ::testing::Values(
        HostileCase{"SparseTwoGigabytes",
                    [](int fd) { ASSERT_EQ(::ftruncate(fd, off_t{2} << 30), 0); },
                    "larger than 10 MB: refused unread."},
        HostileCase{"DeepXml", [](int fd) { writeAll(fd, deepXml()); },
                    "nests deeper than 100 levels: refused before parsing."},
        HostileCase{"SharedBinaryReferences", [](int fd) { writeAll(fd, sharedBinary()); },
                    "would expand to more than 100,000 values: refused before parsing."},
        HostileCase{"DeepXmlInsideASignature", [](int fd) { writeAll(fd, signedBy(deepXml())); },
                    "signed content nests deeper than 100 levels"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmo::agent::console
