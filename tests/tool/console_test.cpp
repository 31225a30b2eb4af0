// Identity texts, and console output against strings.

#include "app/console.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "app/identity.h"
#include "tests/support.h"

namespace {

constexpr size_t MAX_TEXT = 4095;
constexpr size_t MAX_FORMAT = 2047;

// Catches what a call prints, and checks that nothing of it waits in the stream's buffer: the capture goes to a file.
template <typename CALL>
std::string Printed(CALL call) {
  testing::internal::CaptureStdout();
  call();
  struct stat info = {};
  fstat(STDOUT_FILENO, &info);
  const std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(static_cast<size_t>(info.st_size), text.size());
  return text;
}

// A message as it is printed, made from the text behind its prefix.
std::string Message(const std::string& prefix, const std::string& text) {
  std::string message = (prefix + text).substr(0, MAX_TEXT);
  if (message.size() < MAX_TEXT && message.back() != '\n') {
    message += '\n';
  }
  return message;
}

TEST(Identity, TextsAreThoseOfThisVersion) {
  EXPECT_STREQ(IDENTITY_GetRegistryKey(), "Software\\NORDAX\\Tamsel");
  EXPECT_STREQ(IDENTITY_GetShortTitle(), "Tamsel V9.42");
  EXPECT_STREQ(IDENTITY_GetBanner(), "NORDAX Tamsel V9.42");
  EXPECT_STREQ(IDENTITY_GetProductName(), "Tamsel");
  EXPECT_EQ(IDENTITY_GetBanner(), IDENTITY_GetBanner());
}

TEST(Console, PrintsTextsAsTheyAre) {
  for (const std::string& text : {std::string(), std::string("50% %s\n"), std::string(100000, 'x')}) {
    EXPECT_EQ(Printed([&] { CONSOLE_PrintText(text.c_str()); }), text);
    EXPECT_EQ(Printed([&] { CONSOLE_ErrorText(text.c_str()); }), "ERROR: " + text + "\n");
  }
}

TEST(Console, FormatsUpToItsLimit) {
  for (const size_t length : {0, 1, 4085, 4086, 4087, 4088, 4089, 4090, 4093, 4094, 4095, 4096, 10000}) {
    for (const char* end : {"", "\n"}) {
      const std::string text = std::string(length, 'x') + end;
      SCOPED_TRACE(text.size());
      const char* pText = text.c_str();
      EXPECT_EQ(Printed([=] { CONSOLE_Printf("%s", pText); }), text.substr(0, MAX_TEXT));
      EXPECT_EQ(Printed([=] { CONSOLE_PrintLine(pText); }), (text + "\r\n").substr(0, MAX_TEXT));
      EXPECT_EQ(Printed([=] { CONSOLE_Warning("%s", pText); }), Message("WARNING: ", text));
      EXPECT_EQ(Printed([=] { CONSOLE_Error("%s", pText); }), Message("ERROR: ", text));
    }
  }
  EXPECT_EQ(Printed([] { CONSOLE_Printf("%s %.3d %lld%%", "a", 5, 1234567890123ll); }), "a 005 1234567890123%");
  EXPECT_EQ(Printed([] { CONSOLE_Warning("%d of %d", 1, 2); }), "WARNING: 1 of 2\n");
}

TEST(Console, IgnoresFormatsThatAreMissingOrTooLong) {
  GUARDED_BLOCK block(4 * MAX_FORMAT);
  for (const size_t length : {size_t{0}, MAX_FORMAT, MAX_FORMAT + 1, 3 * MAX_FORMAT}) {
    const char* pFormat = length == 0 ? nullptr : block.PlaceText(std::string(length, 'x'));
    const bool isUsable = length == MAX_FORMAT;
    const std::string text = isUsable ? pFormat : "";
    EXPECT_EQ(Printed([=] { CONSOLE_Printf(pFormat); }), text);
    EXPECT_EQ(Printed([=] { CONSOLE_Warning(pFormat); }), isUsable ? Message("WARNING: ", text) : "");
    EXPECT_EQ(Printed([=] { CONSOLE_Error(pFormat); }), isUsable ? Message("ERROR: ", text) : "");
  }
}

}  // namespace
