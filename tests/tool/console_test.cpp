// Identity texts, and console output against strings.

#include "app/console.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "app/identity.h"

namespace {

constexpr size_t MAX_TEXT = 4095;
constexpr size_t MAX_FORMAT = 2047;

// Expects what a call prints, and that nothing of it waits in the stream's buffer: the capture goes to a file.
template <typename CALL>
void ExpectPrinted(CALL call, const std::string& expected) {
  testing::internal::CaptureStdout();
  call();
  EXPECT_EQ(std::filesystem::file_size("/dev/fd/1"), expected.size());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
}

// A message as it is printed, made from the text behind its prefix.
std::string Message(const std::string& prefix, const std::string& text) {
  const std::string message = (prefix + text).substr(0, MAX_TEXT);
  return message + (message.size() < MAX_TEXT && message.back() != '\n' ? "\n" : "");
}

TEST(Identity, TextsAreThoseOfThisVersion) {
  EXPECT_STREQ(IDENTITY_GetRegistryKey(), "Software\\NORDAX\\Tamsel");
  EXPECT_STREQ(IDENTITY_GetShortTitle(), "Tamsel V9.42");
  EXPECT_STREQ(IDENTITY_GetProductName(), "Tamsel");
}

TEST(Console, FormatsUpToItsLimit) {
  for (const size_t length : {0, 1, 4085, 4086, 4087, 4088, 4089, 4093, 4094, 4095, 4096, 10000}) {
    for (const char* end : {"", "\n", "%s"}) {
      const std::string text = std::string(length, 'x') + end;
      const char* pText = text.c_str();
      ExpectPrinted([=] { CONSOLE_PrintText(pText); }, text);
      ExpectPrinted([=] { CONSOLE_ErrorText(pText); }, "ERROR: " + text + "\n");
      ExpectPrinted([=] { CONSOLE_Printf("%s", pText); }, text.substr(0, MAX_TEXT));
      ExpectPrinted([=] { CONSOLE_PrintLine(pText); }, (text + "\r\n").substr(0, MAX_TEXT));
      ExpectPrinted([=] { CONSOLE_Warning("%s", pText); }, Message("WARNING: ", text));
      ExpectPrinted([=] { CONSOLE_Error("%s", pText); }, Message("ERROR: ", text));
    }
  }
  for (const size_t length : {MAX_FORMAT, MAX_FORMAT + 1}) {
    const std::string format(length, 'x');
    ExpectPrinted([&] { CONSOLE_Printf(format.c_str()); }, length == MAX_FORMAT ? format : "");
    ExpectPrinted([&] { CONSOLE_Error(format.c_str()); }, length == MAX_FORMAT ? "ERROR: " + format + "\n" : "");
  }
  ExpectPrinted([] { CONSOLE_Printf(nullptr); }, "");
  ExpectPrinted([] { CONSOLE_Warning(nullptr); }, "");
}

}  // namespace
