// The command line against a model with strings: every option by itself, then sequences of them.

#include "app/options.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <functional>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/faults.h"
#include "tests/support.h"

namespace {

using NUMBER_ROW = std::pair<const char*, uint32_t>;
using TEXT_PAIR = std::pair<std::string, std::string>;

// Fields as the settings have them, but for the pairs, in the order given.
struct MODEL {
  SESSION_SETTINGS Settings = {};
  std::vector<TEXT_PAIR> Pairs;

  MODEL() {
    Settings.TIF = TIF_NONE;
    Settings.Speed = SPEED_NONE;
    Settings.HostIF = HOST_IF_USB;
  }
};

// An option with a value, what it changes, and the message when it fails.
struct USE {
  std::string Name;
  std::string Value;
  std::string Message;
  std::function<void(MODEL&)> Apply;
};

template <size_t SIZE>
void SetText(char (&field)[SIZE], const std::string& text) {
  field[text.copy(field, SIZE - 1)] = '\0';
}

void AddTextUses(std::vector<USE>* pUses) {
  for (const size_t length : {0, 1, 127, 128, 511, 512, 5000}) {
    const std::string text(length, 'x');
    pUses->push_back({"-Operation", text, "", [=](MODEL& m) { SetText(m.Settings.acOperation, text); }});
    pUses->push_back({"-ScriptFile", text, "", [=](MODEL& m) { SetText(m.Settings.acScriptFile, text); }});
    pUses->push_back({"-IP", text, "", [=](MODEL& m) {
                        m.Settings.HostIF = HOST_IF_IP;
                        SetText(m.Settings.acIPAddr, text);
                      }});
  }
  const std::string longText(3000, 'y');
  for (const TEXT_PAIR& pair : {TEXT_PAIR("a", "b=c"), {" A ", " "}, {"k", "="}, {longText, longText}}) {
    pUses->push_back({"-SetConfigVal", pair.first + "=" + pair.second, "", [=](MODEL& m) { m.Pairs.push_back(pair); }});
  }
  for (const char* pText : {"", "=", "=b", "==", "a", "a="}) {
    pUses->push_back({"-SetConfigVal", pText, "-SetConfigVal: Syntax error\n", {}});
  }
  for (const std::string name : {"", "-", "TIF", "-TI", "-TIF2", "-SetCconfigVal", "--USB", "-Speed "}) {
    pUses->push_back({name, "1", "Unknown command line option: " + name + "\n", {}});
  }
}

void AddUSBUses(std::vector<USE>* pUses) {
  for (const std::string text : {"Probe", " 5", "5 ", "-5", "0x5", "5678901234567890123456789012345678901x"}) {
    pUses->push_back({"-USB", text, "", [=](MODEL& m) {
                        m.Settings.HostIF = HOST_IF_USB;
                        m.Settings.USBSelectMode = USB_SELECT_BY_NICKNAME;
                        SetText(m.Settings.acNickname, text);
                      }});
  }
  for (const NUMBER_ROW& row : {NUMBER_ROW("0", 0), {"0012", 12}, {"4294967295", UINT32_MAX}, {"4294967299", 3}}) {
    pUses->push_back({"-USB", row.first, "", [=](MODEL& m) {
                        m.Settings.HostIF = HOST_IF_USB;
                        m.Settings.USBSelectMode = USB_SELECT_BY_NUMBER;
                        m.Settings.USBNumber = static_cast<int32_t>(row.second);
                      }});
  }
  pUses->push_back(
      {"-USB", "", "ERROR while parsing value for usb.\n", [](MODEL& m) { m.Settings.HostIF = HOST_IF_USB; }});
}

void AddNumberUses(std::vector<USE>* pUses) {
  static constexpr NUMBER_ROW NUMBERS[] = {{"0", 0},       {"4000kHz", 4000}, {" \t\r\n7", 7}, {"-1", UINT32_MAX},
                                           {"0x10", 0x10}, {"0XfFg", 0xFF},   {"010", 10},     {"65534", 65534}};
  static constexpr NUMBER_ROW INTERFACES[] = {
      {"JTAG", 0}, {"swd", 1},   {"UART", 3},          {"Fine", 3},   {"2-WIRE-JTAG-pic32", 4}, {"ICSP", 4}, {"SPI", 5},
      {"c2", 6},   {"cJTAG", 7}, {"mc2wjtag_tdi", 10}, {"2-wire", 10}};
  const std::string noSpeed = "Option '-Speed': Invalid value\n";
  const std::string noModule = "ERROR while parsing value for <ModuleIndex>.\n";
  for (const NUMBER_ROW& row : NUMBERS) {
    pUses->push_back({"-Speed", row.first, "", [=](MODEL& m) { m.Settings.Speed = row.second; }});
    pUses->push_back({"-Module", row.first, "", [=](MODEL& m) {
                        m.Settings.ModuleIndex = row.second;
                        m.Settings.HasModule = 1;
                      }});
  }
  for (const char* pText : {"", " ", "fast", "-", "--1", "0x", "+1", "\v1", "adaptive "}) {
    pUses->push_back({"-Speed", pText, noSpeed, {}});
    pUses->push_back({"-Module", pText, noModule, {}});
  }
  pUses->push_back({"-Speed", "aDAPTIVE", "", [](MODEL& m) { m.Settings.Speed = SPEED_ADAPTIVE; }});
  for (const std::string name : {"-TIF", "-If"}) {
    for (const NUMBER_ROW& row : INTERFACES) {
      pUses->push_back({name, row.first, "", [=](MODEL& m) { m.Settings.TIF = row.second; }});
    }
    for (const std::string text : {"", "Swd2", " SWD", "JTA", "1"}) {
      pUses->push_back({name, text, "Option '" + name + "': Unknown interface '" + text + "'\n", {}});
    }
  }
}

class Options : public testing::Test {
 protected:
  Options() {
    AddTextUses(&uses);
    AddUSBUses(&uses);
    AddNumberUses(&uses);
    CMDLINE_Init(pArena);
  }
  ~Options() override { OTALLOC_Destroy(pArena); }

  // Parses the arguments, and expects a message, or none and success, and the settings.
  static void Expect(std::vector<std::string> args, const std::string& message, const MODEL& model) {
    SCOPED_TRACE(testing::PrintToString(args).substr(0, 1000));
    std::vector<char*> pointers = {nullptr};  // The program's name is not looked at.
    for (std::string& arg : args) {
      pointers.push_back(arg.data());
    }
    pointers.push_back(nullptr);
    testing::internal::CaptureStdout();
    const int32_t result = CMDLINE_Parse(static_cast<int>(args.size()) + 1, pointers.data());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), message);
    EXPECT_EQ(result, message.empty() ? 0 : -1);
    const SESSION_SETTINGS& settings = *CMDLINE_GetSettings();
    const auto numbers = [](const SESSION_SETTINGS& s) {
      return std::tuple(s.USBSelectMode, s.TIF, s.Speed, s.HostIF, s.USBNumber, s.ModuleIndex, s.HasModule);
    };
    EXPECT_EQ(numbers(settings), numbers(model.Settings));
    EXPECT_STREQ(settings.acScriptFile, model.Settings.acScriptFile);
    EXPECT_STREQ(settings.acOperation, model.Settings.acOperation);
    EXPECT_STREQ(settings.acIPAddr, model.Settings.acIPAddr);
    EXPECT_STREQ(settings.acNickname, model.Settings.acNickname);
    std::vector<TEXT_PAIR> pairs;
    for (const CONFIG_VAL_NODE* p = settings.pConfigVals; p != nullptr; p = p->pNext) {
      pairs.emplace(pairs.begin(), p->pKey, p->pValue);
    }
    EXPECT_EQ(pairs, model.Pairs);
  }

  std::vector<USE> uses;
  OTALLOC* const pArena = OTALLOC_Create();
};

// Case and white space before a name do not matter; the first error ends it all, and what came before stays.
TEST_F(Options, AddUpUntilTheFirstError) {
  RANDOM random(1);
  for (int round = 0; round < 3000; round++) {
    CMDLINE_Init(pArena);
    MODEL model;
    std::vector<std::string> args;
    std::string message;
    for (uint32_t n = random.Below(10); n > 0; n--) {
      const USE& use = uses[random.Below(uses.size())];
      const bool isKnown = !use.Message.starts_with("Unknown");
      std::string name = use.Name;
      for (char& c : name) {  // An unknown name is told as it was typed.
        c = isKnown && random.OneIn(2) ? static_cast<char>(c ^ (isalpha(c) != 0 ? 0x20 : 0)) : c;
      }
      args.push_back(random.Text(" \t\r\n", 2) + name);
      const bool isCutOff = random.OneIn(20);
      if (message.empty()) {
        message = isCutOff && isKnown ? "Missing parameter after command line option '" + name + "'\n" : use.Message;
        if (use.Apply && !isCutOff) {
          use.Apply(model);
        }
      }
      if (isCutOff) {
        break;
      }
      args.push_back(use.Value);
    }
    Expect(args, message, model);
  }
}

TEST_F(Options, PairsFailWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  const std::string big(OTALLOC_BLOCK_SIZE, 'x');
  MODEL model;
  model.Pairs = {{"first", "1"}};
  Expect({"-SetConfigVal", "first=1"}, "", model);
  uint32_t numFailures = 0;
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    // Without room in the blocks there are, node, key and value need a block each.
    for (OTALLOC* pBlock = pArena; pBlock != nullptr; pBlock = pBlock->pNext) {
      pBlock->Used = pBlock->Capacity;
    }
    const bool isHit = numFailures < 3;
    if (!isHit) {
      model.Pairs.emplace_back(big, big);
    }
    Expect({"-SetConfigVal", big + "=" + big}, isHit ? "-SetConfigVal: Failed to allocate memory\n" : "", model);
    EXPECT_EQ(fault.WasHit(), isHit);
    numFailures++;
  });
}

}  // namespace
