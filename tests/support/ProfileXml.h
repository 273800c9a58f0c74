#pragma once

#include <string>

namespace velmo::testing {

// A payload as a profile editor writes it: its type, identifier (none when
// empty) and bookkeeping keys, then `keys`, already XML.
inline std::string payload(const char* type, const char* id, const std::string& keys) {
  std::string text = "<dict><key>PayloadType</key><string>" + std::string(type) + "</string>";
  if (*id) text += "<key>PayloadIdentifier</key><string>" + std::string(id) + "</string>";
  return text +
         "<key>PayloadDisplayName</key><string>Shown</string><key>PayloadUUID</key>"
         "<string>6E1B2C6C-0000-4B7A-9B8E-000000000001</string><key>PayloadVersion</key>"
         "<integer>1</integer>" +
         keys + "</dict>";
}

// An XML configuration profile around `payloads`.
inline std::string profile(const std::string& payloads) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
         "<key>PayloadContent</key><array>" +
         payloads +
         "</array><key>PayloadIdentifier</key><string>com.example.velmo</string>"
         "<key>PayloadType</key><string>Configuration</string><key>PayloadVersion</key>"
         "<integer>1</integer></dict></plist>";
}

}  // namespace velmo::testing
