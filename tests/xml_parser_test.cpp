// The reader: its grammar in tables, random texts against a reader that follows the rules step by step, hostile texts,
// and files that misbehave.

#include <ctype.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <strings.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/faults.h"
#include "tests/support.h"
#include "tests/xml_support.h"
#include "xml/xml.h"

namespace {

using std::string_literals::operator""s;

struct OUTCOME {
  int32_t Result;
  std::string Tree;
  size_t Pos;  // Where reading ended; of no meaning after a failure.
};

// Reads a text that stands right before a page which nobody may touch.
OUTCOME Read(const std::string& text, XML_DOC* pDoc, XML_ELEMENT* pParent = nullptr, uint32_t depth = 0) {
  static GUARDED_BLOCK block(0x800000);
  const char* pText = block.PlaceText(text);
  const char* pPos = pText;
  const int32_t result = XML_Parse(pDoc, &pPos, pParent, depth);
  return {result, TreeOf(pDoc), static_cast<size_t>(pPos - pText)};
}

OUTCOME Read(const std::string& text) {
  DOC doc = MakeEmptyDoc();
  return Read(text, doc.get());
}

std::string Repeat(const std::string& text, size_t count) {
  std::string result;
  for (size_t i = 0; i < count; i++) {
    result += text;
  }
  return result;
}

TEST(Parse, ReadsTrees) {
  struct {
    const char* pText;
    const char* pTree;
  } constexpr CASES[] = {
      {"", ""},
      {" \t\r\n<!-- only --> ", ""},
      {"<Registry/>", "Registry "},
      {"<a><b x=\"1\"/>\r\n<c></c></a>", "a{b(x=1) c } "},
      {"<a/><b><c/></b><d/>", "a b{c } d "},
      {"<Name></nAME><b/>", "Name b "},
      {"<a><b><c x=\"1\">", "a{b{c(x=1) } } "},
      {"<a-b_9-><_ _-=\"\"/><7/></a-b_9->", "a-b_9-{_(_-=) 7 } "},
      {"<a v=\"<>&amp;'\r\n\t\x80\xFF\" V=\"2\" v=\"\"/>", "a(v=<>&amp;'\r\n\t\x80\xFF V=2 v=) "},
      // White space and comments between all tokens.
      {" < <!----> a <!--<--> x <!-- --> = <!--=--> \"1\" <!--y--> / <!-- --> >", "a(x=1) "},
      {"<a\n>< \t/ <!-- --> a\r>", "a "},
      {"<!-- a --- b -- > --><!-----><!----><a/>", "a "},
      {"<a/><!-- no end ><b/>", "a "},
      {"<a><!-- no end --", "a "},
      {"<a/><!DOCTYPE no end", "a "},
      // Values without quotes are empty; the next name may follow at once.
      {"<a x= y=\"1\"/>", "a(x= y=1) "},
      {"<a x=y=\"1\"z=\"2\"/>", "a(x= y=1 z=2) "},
      {"<a x=>", "a(x=) "},
      // What is no attribute takes those before it along.
      {"<a x=\"1\" y=\"2\" bare>", "a "},
      {"<a x=\"1\" bare/>", "a "},
      {"<a x=1/><b/>", "a b "},
      // Declarations and document types, before any element at any level.
      {"<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n<a/>", "a "},
      {"<?XML<!-- -->Version = \" 1.9 \"Standalone=\"YES\"?><!doctype a [<!ENTITY b><c/>", "c "},
      {"<?xmlversion=\"1.0\"encoding=\"utf-8\"?><!DOCTYPE><a/>", "a "},
      {"<a><?xml version=\"1.0\"?><b/><!DOCTYPE x></a>", "a{b } "},
      // A declaration that breaks off ends there.
      {"<?xml <a/>", "a "},
      {"<?xml version=\"1.<a/>", "a "},
      {"<?xml version=\"1.0\" encoding=\"<a/>", "a "},
  };
  for (const auto& testCase : CASES) {
    const OUTCOME outcome = Read(testCase.pText);
    EXPECT_EQ(outcome.Result, 0) << testCase.pText;
    EXPECT_EQ(outcome.Tree, testCase.pTree) << testCase.pText;
    EXPECT_EQ(outcome.Pos, strlen(testCase.pText)) << testCase.pText;
  }
}

TEST(Parse, TellsWhatIsWrong) {
  const std::string longName(XML_MAX_NAME_LEN, 'n');
  const std::pair<std::string, int32_t> CASES[] = {
      {"text", -2},
      {"<a>text</a>", -2},
      {"<a/>\f", -2},
      {"<a><b/>;</a>", -2},
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>", -2},
      {"<?xml version=\"1.0\" standalone=\"no\"?><a/>", -2},
      {"<?xml version=\"1.\"?><a/>", -2},
      {"<?xml version=\"2.0\"?><a/>", -2},
      {"<?xml version=\"1.0\" standalone=\"yes\" encoding=\"UTF-8\"?><a/>", -2},
      {"<?xml version='1.0'?><a/>", -2},
      {"<?xml-stylesheet?><a/>", -2},
      {"<", -3},
      {"<>", -3},
      {"</>", -3},
      {"<-a/>", -3},
      {"<\xC3\xA4/>", -3},
      {"<:a/>", -3},
      {"<?xml version=\"1.0\"?><?xml version=\"1.0\"?><a/>", -3},
      {"<!DOCTYPE a><!DOCTYPE a><a/>", -3},
      {"<!DOCTYPE a [<!ENTITY b>]><a/>", -2},
      {"<!DOCTYPE a><?xml version=\"1.0\"?><a/>", -3},
      {"<?php?>", -3},
      {"<!- a --><a/>", -3},
      {"<" + longName + "n/>", -3},
      {"<" + longName + "></" + longName + "n>", -3},
      {"</a>", -4},
      {"<a/></a>", -4},
      {"<a></b>", -5},
      {"<a></aa>", -5},
      {"<aa></a>", -5},
      {"<a-></a_>", -5},
      {"<a><b></a></b>", -5},
      {"<a", -6},
      {"<a/", -6},
      {"<a/ b>", -6},
      {"<a></a", -6},
      {"<a></a b>", -6},
      {"<a:b/>", -6},
      {"<a x='1'/>", -6},
      {"<a x=\"1\" bare y=\"2\"/>", -6},
      {"<a x=\"no end/>", -6},
      {"<a =\"1\"/>", -6},
      {"<a -x=\"1\"/>", -6},
  };
  for (const auto& [text, result] : CASES) {
    EXPECT_EQ(Read(text).Result, result) << text;
  }
  const OUTCOME longest = Read("<" + longName + "></" + longName + "><b/>");
  EXPECT_EQ(longest.Result, 0);
  EXPECT_EQ(longest.Tree, longName + " b ");
  EXPECT_EQ(Read("<a " + Repeat("n", 70000) + "=\"" + Repeat("v", 5000000) + "\"/>").Result, 0);
}

TEST(Parse, LimitsTheDepthOfContent) {
  const std::string open = Repeat("<a>", XML_MAX_DEPTH);
  EXPECT_EQ(Read(open + "<b/><c x=\"1\"/>" + Repeat("</a>", XML_MAX_DEPTH) + "<d/>").Result, 0);
  EXPECT_EQ(Read(open + "<b></b>").Result, -8);
  EXPECT_EQ(Read(Repeat("<a>", 1000000)).Result, -8);

  DOC doc(XML_CreateDoc("a"));
  EXPECT_EQ(Read("<b><c/></b></a>", doc.get(), doc->pRoot, XML_MAX_DEPTH - 1).Result, 0);
  EXPECT_EQ(Read("<b></b></a>", doc.get(), doc->pRoot, XML_MAX_DEPTH).Result, -8);
  EXPECT_EQ(Read("", doc.get(), doc->pRoot, XML_MAX_DEPTH + 1).Result, -8);
}

TEST(Parse, AppendsToWhatIsThere) {
  DOC doc(XML_CreateDoc("root"));
  XML_ELEMENT* pRoot = XML_GetRoot(doc.get());
  XML_AddChild(doc.get(), pRoot, "a");
  OUTCOME outcome = Read("<b><c/></b><d/></ROOT> left <", doc.get(), pRoot);
  EXPECT_EQ(outcome.Result, 0);
  EXPECT_EQ(outcome.Tree, "root{a b{c } d } ");
  EXPECT_EQ(outcome.Pos, strlen("<b><c/></b><d/></ROOT>"));
  EXPECT_EQ(Read("<e/></f>", doc.get(), pRoot).Result, -5);
  XML_AddChild(doc.get(), pRoot, "g");
  outcome = Read("<top/><top2/>", doc.get());
  EXPECT_EQ(outcome.Tree, "root{a b{c } d e g } top top2 ");
  const char* pPos = "<a/>";
  EXPECT_EQ(XML_Parse(nullptr, &pPos, nullptr, 0), -1);
}

TEST(Skip, TellsOfComments) {
  struct {
    const char* pText;
    int32_t Result;
    size_t Pos;
    int32_t ResultAll;
    size_t PosAll;
  } constexpr CASES[] = {
      {"", 0, 0, 0, 0},
      {" \t\r\n\v", 0, 4, 0, 4},
      {"<!-- a --> b", 1, 11, 0, 11},
      {" <!----> <!----><", 1, 9, 0, 16},
      {"<!-->", -1, 5, -1, 5},
      {"<!--->x", -1, 7, -1, 7},
      {"<!---->", 1, 7, 0, 7},
      {"<!----", -1, 6, -1, 6},
      {"<!---->\n<!--", 1, 8, -1, 12},
      {"<!-", 0, 0, 0, 0},
  };
  for (const auto& testCase : CASES) {
    GUARDED_BLOCK block;
    const char* pText = block.PlaceText(testCase.pText);
    const char* pPos = pText;
    EXPECT_EQ(XML_SkipWS(&pPos), testCase.Result) << testCase.pText;
    EXPECT_EQ(pPos - pText, static_cast<ptrdiff_t>(testCase.Pos)) << testCase.pText;
    pPos = pText;
    EXPECT_EQ(XML_SkipAll(&pPos), testCase.ResultAll) << testCase.pText;
    EXPECT_EQ(pPos - pText, static_cast<ptrdiff_t>(testCase.PosAll)) << testCase.pText;
  }
}

// ---- Against a reader that follows the rules ----

// Reads level by level, each recursively, and keeps nothing but the text of the tree.
class MODEL {
 public:
  explicit MODEL(std::string text) : Text(std::move(text)) {}

  OUTCOME Run() {
    std::string tree;
    const int32_t result = Level(nullptr, 0, &tree);
    return {result, tree, Pos};
  }

 private:
  char Here() const { return Pos < Text.size() ? Text[Pos] : '\0'; }
  bool Is(char c) const { return Here() == c && c != '\0'; }
  bool Step(char c) {
    const bool is = Is(c);
    Pos += is;
    return is;
  }

  void Skip() {
    for (;;) {
      while (Here() != '\0' && strchr(" \t\r\n", Here()) != nullptr) {
        Pos++;
      }
      if (Text.compare(Pos, 4, "<!--") != 0) {
        return;
      }
      const size_t end = Text.find("-->", Pos + 4);
      Pos = end == std::string::npos ? Text.size() : end + 3;
    }
  }

  bool Word(const std::string& word) {
    if (Text.size() - Pos < word.size() || strncasecmp(&Text[Pos], word.c_str(), word.size()) != 0) {
      return false;
    }
    Pos += word.size();
    return true;
  }

  bool Words(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
      Skip();
      if (!Word(word)) {
        return false;
      }
    }
    return true;
  }

  void Declaration() {
    if (!Words({"<?xml"}) || !Words({"version", "=", "\"", "1."}) || !isdigit(static_cast<unsigned char>(Here()))) {
      return;
    }
    Pos++;
    if (!Words({"\""}) || (Words({"encoding"}) && !Words({"=", "\"", "UTF-8", "\""})) ||
        (Words({"standalone"}) && !Words({"=", "\"", "yes", "\""}))) {
      return;
    }
    Words({"?>"});
  }

  void DocType() {
    if (Words({"<!DOCTYPE"})) {
      const size_t end = Text.find('>', Pos);
      Pos = end == std::string::npos ? Text.size() : end + 1;
    }
  }

  std::string Name() {
    std::string name;
    while (isalnum(static_cast<unsigned char>(Here())) || Is('_') || (Is('-') && !name.empty())) {
      name += Text[Pos++];
    }
    return name;
  }

  std::string Attributes() {
    std::string list;
    for (;;) {
      Skip();
      if (Is('/') || Is('>')) {
        if (!list.empty()) {
          list[0] = '(';
          list += ')';
        }
        return list;
      }
      const std::string name = Name();
      Skip();
      if (name.empty() || !Step('=')) {
        return "";
      }
      Skip();
      std::string value;
      if (Step('"')) {
        const size_t end = Text.find('"', Pos);
        value = end == std::string::npos ? "" : Text.substr(Pos, end - Pos);
        Pos = end == std::string::npos ? Text.size() : end + 1;
      }
      list.append(" ").append(name).append("=").append(value);
    }
  }

  int32_t Level(const std::string* pParent, uint32_t depth, std::string* pTree) {
    if (depth > XML_MAX_DEPTH) {
      return -8;
    }
    int32_t result;
    do {
      Declaration();
      DocType();
      Skip();
      if (Here() == '\0') {
        return 0;
      }
      if (!Step('<')) {
        return -2;
      }
      Skip();
      const bool isClosing = Step('/');
      Skip();
      const std::string name = Name();
      if (name.empty() || name.size() > XML_MAX_NAME_LEN) {
        return -3;
      }
      if (isClosing) {
        return pParent == nullptr                                ? -4
               : strcasecmp(name.c_str(), pParent->c_str()) != 0 ? -5
               : (Skip(), Step('>'))                             ? 0
                                                                 : -6;
      }
      *pTree += name + Attributes();
      std::string children;
      result = Child(name, depth, &children);
      if (!children.empty()) {
        pTree->append("{").append(children).append("}");
      }
      *pTree += ' ';
    } while (result == 0 && Here() != '\0');
    return result;
  }

  // What follows the attributes of an opening tag.
  int32_t Child(const std::string& name, uint32_t depth, std::string* pChildren) {
    Skip();
    const bool isEmpty = Step('/');
    Skip();
    if (!Step('>')) {
      return -6;
    }
    return isEmpty ? 0 : Level(&name, depth + 1, pChildren);
  }

  const std::string Text;
  size_t Pos = 0;
};

std::string RandomTokens(RANDOM& random) {
  static const char* const TOKENS[] = {"<",
                                       ">",
                                       "/",
                                       "=",
                                       "\"",
                                       " ",
                                       "a",
                                       "B",
                                       "</a>",
                                       "<a>",
                                       "<b/>",
                                       "<B x=\"",
                                       "\" ",
                                       "x=\"",
                                       "<!--",
                                       "-->",
                                       "--",
                                       "!",
                                       "-",
                                       "\r\n",
                                       "<?xml",
                                       "version",
                                       "1.",
                                       "0",
                                       "\"1.0\"",
                                       "encoding",
                                       "\"utf-8\"",
                                       "?>",
                                       "standalone=\"yes\"",
                                       "\xE4",
                                       "<!DOCTYPE",
                                       "<a",
                                       "y=\"\"",
                                       "<?xml version=\"1.0\"?>"};
  std::string text;
  for (uint32_t n = random.Below(25); n > 0; n--) {
    text += TOKENS[random.Below(std::size(TOKENS))];
  }
  return text;
}

std::string RandomElement(RANDOM& random, uint32_t depth) {
  const auto gap = [&] { return random.OneIn(6) ? random.OneIn(3) ? "<!-- > -->" : "\r\n  " : ""; };
  const std::string name = random.Text("aB", 2) + "c";
  std::string text = std::string(gap()) + "<" + gap() + name;
  for (uint32_t n = random.Below(4); n > 0; n--) {
    text += std::string(" ") + gap() + random.Text("xyZ", 2) + "w" + gap() + "=" + gap() + "\"" +
            random.Text("v<>&/= '", 5) + "\"" + gap();
  }
  if (depth == 5 || random.OneIn(3)) {
    return text + "/" + gap() + ">" + gap();
  }
  text += ">";
  for (uint32_t n = random.Below(3); n > 0; n--) {
    text += RandomElement(random, depth + 1);
  }
  return text + gap() + "</" + gap() + name + gap() + ">" + gap();
}

// A good text, or one with a few bytes changed, dropped or doubled.
std::string RandomDocument(RANDOM& random) {
  std::string text = random.OneIn(4) ? "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>" : "";
  text += RandomElement(random, 0);
  for (uint32_t n = random.Below(4); n > 0; n--) {
    const size_t at = random.Below(text.size());
    switch (random.Below(3)) {
      case 0:
        text[at] = "<>/=\" a-!?"[random.Below(10)];
        break;
      case 1:
        text.erase(at, 1 + random.Below(3));
        break;
      default:
        text.insert(at, text.substr(random.Below(text.size()), random.Below(10)));
    }
    text += text.empty() ? "<" : "";
  }
  return text;
}

TEST(Parse, ReadsRandomTextsLikeTheModel) {
  RANDOM random(1);
  int numGood = 0;
  DOC doc;
  for (int round = 0; round < 40000; round++) {
    if (round % 1000 == 0) {
      doc = MakeEmptyDoc();
    }
    doc->pRoot = nullptr;
    const std::string text = random.OneIn(2) ? RandomTokens(random) : RandomDocument(random);
    const OUTCOME expected = MODEL(text).Run();
    const OUTCOME outcome = Read(text, doc.get());
    ASSERT_EQ(outcome.Result, expected.Result) << text;
    ASSERT_EQ(outcome.Tree, expected.Tree) << text;
    ASSERT_TRUE(expected.Result < 0 || outcome.Pos == expected.Pos) << text;
    numGood += expected.Result == 0 && expected.Tree.size() > 10;
  }
  EXPECT_GT(numGood, 4000);
}

// Texts of some megabytes that a reader which looks twice at anything would not finish in a lifetime.
TEST(Parse, ReadsHostileTextsOnce) {
  constexpr size_t COUNT = 1000000;
  const std::pair<std::string, int32_t> CASES[] = {
      {"<a>" + Repeat("<!---->", COUNT) + "</a>", 0},
      {"<a/>" + Repeat("<!--", COUNT), 0},
      {"<a/><!--" + Repeat("--", COUNT) + "->", 0},
      {"<a/><!--" + Repeat("->", COUNT), 0},
      {"<a><!DOCTYPE" + Repeat(" ", COUNT), 0},
      {"<a>" + Repeat("<!DOCTYPE><b/>", COUNT) + "</a>", 0},
      {"<a " + Repeat("x=\"1\" ", COUNT) + "/>", 0},
      {"<a " + Repeat("x=", COUNT) + "/>", 0},
      {"<a x" + Repeat("<!---->", COUNT) + "=\"1\"/>", 0},
      {"<a " + Repeat("n", COUNT) + "/>", 0},
      {"<" + Repeat("n", COUNT) + "/>", -3},
      {"<?xml" + Repeat(" <!-- -->", COUNT) + "version", 0},
      {Repeat("<b/>", COUNT), 0},
      {Repeat(" ", COUNT), 0},
      {"<a x=\"" + Repeat("<", COUNT), -6},
  };
  for (const auto& [text, result] : CASES) {
    DOC doc = MakeEmptyDoc();
    const char* pPos = text.c_str();
    EXPECT_EQ(XML_Parse(doc.get(), &pPos, nullptr, 0), result) << text.substr(0, 20);
  }
}

// ---- Exhausted memory ----

TEST(Parse, FailsOrDropsAttributesWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  const uint32_t elementBytes = sizeof(XML_ELEMENT) + sizeof(void*) + 8;
  struct {
    const char* pText;
    uint32_t Room;
    int32_t Result;
    const char* pTree;
  } const CASES[] = {
      {"<element/>", elementBytes - 8, -1, ""},
      {"<element/><second/>", elementBytes, -1, "element "},
      {"<element x=\"1\"/><a/>", elementBytes, -1, "element "},
      {"<element x=\"1\" y=\"2\"/>", elementBytes, -6, "element "},
      {"<element x=\"1\" y=\"2\"/>", elementBytes + 48, 0, "element "},
      {"<element x=\"1\" y = \"2\"/>", elementBytes + 48, 0, "element "},
  };
  for (const auto& testCase : CASES) {
    DOC doc = MakeEmptyDoc();
    LeaveRoom(doc.get(), testCase.Room);
    SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
    const char* pPos = testCase.pText;
    EXPECT_EQ(XML_Parse(doc.get(), &pPos, nullptr, 0), testCase.Result) << testCase.pText;
    EXPECT_EQ(TreeOf(doc), testCase.pTree) << testCase.pText;
    EXPECT_TRUE(fault.WasHit());
  }
}

// ---- Files ----

class FILE_TEXT {
 public:
  explicit FILE_TEXT(const std::string& text) : Fd(mkstemp(acPath)) {
    EXPECT_EQ(write(Fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  ~FILE_TEXT() {
    close(Fd);
    unlink(acPath);
  }
  FILE_TEXT(const FILE_TEXT&) = delete;
  FILE_TEXT& operator=(const FILE_TEXT&) = delete;

  char acPath[64] = "/tmp/nordax_xml_XXXXXX";
  const int Fd;
};

TEST(Load, ReadsAWholeFileOrNothing) {
  struct {
    std::string Text;
    const char* pTree;  // Null: no document.
  } const CASES[] = {
      {"<a x=\"1\"><b/></a>", "a(x=1){b } "},
      {"<a/>\0<b/>text"s, "a "},
      {"\0<a/>"s, nullptr},
      {"", nullptr},
      {" <!-- --> ", nullptr},
      {"<?xml version=\"1.0\"?>", nullptr},
      {"<a/>text", nullptr},
      {"<a", nullptr},
  };
  for (const auto& testCase : CASES) {
    FILE_TEXT file(testCase.Text);
    DOC byFd(XML_LoadFd(file.Fd));  // The position is at the end.
    DOC byPath(XML_LoadFile(file.acPath));
    for (const DOC* pDoc : {&byFd, &byPath}) {
      ASSERT_EQ(*pDoc == nullptr, testCase.pTree == nullptr) << testCase.Text;
      EXPECT_EQ(*pDoc == nullptr ? "" : TreeOf(*pDoc), testCase.pTree == nullptr ? "" : testCase.pTree);
    }
  }
}

TEST(Load, RefusesWhatIsNoFile) {
  int aFds[2];
  ASSERT_EQ(pipe(aFds), 0);
  EXPECT_EQ(XML_LoadFd(aFds[0]), nullptr);
  close(aFds[0]);
  close(aFds[1]);
  EXPECT_EQ(XML_LoadFd(-1), nullptr);
  EXPECT_EQ(XML_LoadFile("/tmp"), nullptr);
  EXPECT_EQ(XML_LoadFile("/tmp/nordax_xml_missing"), nullptr);
  EXPECT_EQ(XML_LoadFile(""), nullptr);
  EXPECT_EQ(XML_LoadFile(nullptr), nullptr);
}

TEST(Load, SurvivesReadsThatFailOrStopShort) {
  FAULTS_REQUIRE();
  FILE_TEXT file("<a>" + Repeat("<b c=\"d\"/>", 5000) + "</a>");
  const std::string tree = TreeOf(DOC(XML_LoadFd(file.Fd)));
  struct {
    FAULT Fault;
    bool IsLoaded;
  } const CASES[] = {
      {{FAULT_CALL::READ, 1, 0, UINT32_MAX, FAULT_KIND::SHORT}, true},
      {{FAULT_CALL::READ, 1, EINTR, 3}, true},
      {{FAULT_CALL::READ, 1, EIO}, false},
  };
  for (const auto& testCase : CASES) {
    SCOPED_FAULT fault(testCase.Fault);
    DOC doc(XML_LoadFd(file.Fd));
    EXPECT_TRUE(fault.WasHit());
    ASSERT_EQ(doc != nullptr, testCase.IsLoaded);
    EXPECT_EQ(doc == nullptr ? tree : TreeOf(doc), tree);
  }
}

// Several blocks of the arena: each allocation fails in turn, and what is loaded nevertheless has lost attributes at
// most.
TEST(Load, LeavesNothingBehindWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  FILE_TEXT file("<a>" + Repeat("<b/>", 100000) + "</a>");
  const std::string tree = TreeOf(DOC(XML_LoadFd(file.Fd)));
  int numFailed = 0;
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    DOC doc(XML_LoadFd(file.Fd));
    numFailed += doc == nullptr;
    ASSERT_EQ(doc == nullptr, fault.WasHit());
    ASSERT_EQ(doc == nullptr ? tree : TreeOf(doc), tree);
  });
  EXPECT_GE(numFailed, 4);
}

}  // namespace
