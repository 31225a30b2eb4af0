// Trees: read by the grammar, from hostile texts and from files that misbehave; built, searched, changed and saved;
// typed values.

#include "xml/xml.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <math.h>

#include <limits>
#include <memory>

#include "tests/faults.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

using std::string_literals::operator""s;

constexpr char DECLARATION[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n";

struct FREE_DOC {
  void operator()(XML_DOC* pDoc) const { XML_FreeDoc(pDoc); }
};

using DOC = std::unique_ptr<XML_DOC, FREE_DOC>;

// A document without an element, to read texts into.
DOC MakeEmptyDoc() {
  DOC doc(XML_CreateDoc("x"));
  doc->pRoot = nullptr;
  return doc;
}

// What a chain of elements looks like, each followed by a blank: name(name=value ...){children}
std::string TreeOf(const XML_ELEMENT* pFirst, const XML_ELEMENT* pParent = nullptr) {
  std::string text;
  const XML_ELEMENT* pPrev = nullptr;
  for (const XML_ELEMENT* p = pFirst; p != nullptr; pPrev = p, p = p->pNext) {
    EXPECT_TRUE(p->pParent == pParent && p->pPrev == pPrev && strlen(p->pName) == p->NameLen) << p->pName;
    text += p->pName;
    const XML_ATTR* pPrevAttr = nullptr;
    for (const XML_ATTR* pAttr = p->pFirstAttr; pAttr != nullptr; pPrevAttr = pAttr, pAttr = pAttr->pNext) {
      EXPECT_TRUE(pAttr->pPrev == pPrevAttr && strlen(pAttr->pName) == pAttr->NameLen) << pAttr->pName;
      EXPECT_EQ(strlen(pAttr->pValue), pAttr->ValueLen) << pAttr->pName;
      text.append(pPrevAttr == nullptr ? "(" : " ").append(pAttr->pName).append("=").append(pAttr->pValue);
    }
    text += pPrevAttr == nullptr ? "" : ")";
    text += p->pFirstChild == nullptr ? " " : "{" + TreeOf(p->pFirstChild, p) + "} ";
  }
  return text;
}

std::string TreeOf(const DOC& doc) {
  return doc == nullptr ? "none" : TreeOf(doc->pRoot);
}

// Leaves room for numBytes bytes in the document's arena, which must still have its first block alone.
void LeaveRoom(XML_DOC* pDoc, uint32_t numBytes) {
  OTALLOC_Alloc(pDoc->pArena, pDoc->pArena->Capacity - pDoc->pArena->Used - numBytes);
}

// ---- Reading ----

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
  return {result, TreeOf(pDoc->pRoot), static_cast<size_t>(pPos - pText)};
}

OUTCOME Read(const std::string& text) {
  return Read(text, MakeEmptyDoc().get());
}

std::string Repeat(const std::string& text, size_t count) {
  std::string result;
  for (size_t i = 0; i < count; i++) {
    result += text;
  }
  return result;
}

TEST(Parse, FollowsItsGrammar) {
  const std::string longest(XML_MAX_NAME_LEN, 'n');
  const struct {
    std::string Text;
    int32_t Result;
    std::string Tree = "";  // Not looked at after a failure.
  } CASES[] = {
      {" \t\r\n<!-- only --> ", 0},
      {"<a><b x=\"1\"/>\r\n<c></c></a><d/>", 0, "a{b(x=1) c } d "},
      {"<Name_9-z><b-></B-></nAME_9-Z>", 0, "Name_9-z{b- } "},
      {"<a><b><c x=\"1\">", 0, "a{b{c(x=1) } } "},
      {"<a v=\"<>&amp;'\r\n\t\x80\xFF\" V=\"2\" v=\"\"/>", 0, "a(v=<>&amp;'\r\n\t\x80\xFF V=2 v=) "},
      {" < <!----> a <!--<--> x <!-- --> = <!--=--> \"1\" <!--y--> / <!-- --> >", 0, "a(x=1) "},
      {"< a >< / <!-- --> A > <b/>", 0, "a b "},
      {"<!-- a --- b -- > --><!-----><!----><a/>", 0, "a "},
      {"<a/><!-- no end ><b/>", 0, "a "},
      {"<a x= y=z=\"2\"w=\"1\"/>", 0, "a(x= y= z=2 w=1) "},
      {"<a x=\"1\" y=\"2\" bare>", 0, "a "},
      {"<a/><?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n<!DOCTYPE a><b/>", 0, "a b "},
      {"<?XML<!-- -->Version = \" 1.9 \"Standalone=\"YES\"?><!doctype a [<!ENTITY b><c/>", 0, "c "},
      {"<?xmlversion=\"1.0\"encoding=\"<a/><!DOCTYPE no end", 0, "a "},
      {"<" + longest + "></" + longest + "><b/>", 0, longest + " b "},
      {"<a>text</a>", -2},
      {"<a/>\f", -2},
      {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>", -2},
      {"<?xml version=\"1.0\" standalone ?><a/>", -2},
      {"<?xml version=\"1.\"?><a/>", -2},
      {"<?xml version=\"1.0\"?><?xml version=\"1.0\"?><a/>", -3},
      {"<!DOCTYPE a><!DOCTYPE a><a/>", -3},
      {"<\xC3\xA4/>", -3},
      {"<-a/>", -3},
      {"<" + longest + "n/>", -3},
      {"</a>", -4},
      {"<a><b></a></b>", -5},
      {"<a-></a_>", -5},
      {"<aa></a>", -5},
      {"<a></a b>", -6},
      {"<a x='1'/>", -6},
      {"<a/ b>", -6},
      {"<a/ / >", -6},
      {"<a x=\"/>", -6},
  };
  for (const auto& testCase : CASES) {
    const OUTCOME outcome = Read(testCase.Text);
    EXPECT_EQ(outcome.Result, testCase.Result) << testCase.Text;
    EXPECT_TRUE(testCase.Result < 0 || outcome.Tree == testCase.Tree) << testCase.Text << '\n' << outcome.Tree;
    EXPECT_TRUE(testCase.Result < 0 || outcome.Pos == testCase.Text.size());
    const DOC doc = MakeEmptyDoc();
    for (size_t length = 0; length < testCase.Text.size(); length++) {
      EXPECT_NE(Read(testCase.Text.substr(0, length), doc.get()).Result, -1);
    }
  }
}

TEST(Parse, LimitsTheDepthOfContent) {
  const std::string open = Repeat("<a>", XML_MAX_DEPTH);
  EXPECT_EQ(Read(open + "<b/><c x=\"1\"/>" + Repeat("</a>", XML_MAX_DEPTH) + "<d/>").Result, 0);
  EXPECT_EQ(Read(open + "<b></b>").Result, -8);
  EXPECT_EQ(Read(Repeat("<a></a>", XML_MAX_DEPTH + 1)).Result, 0);
  DOC doc(XML_CreateDoc("a"));
  EXPECT_EQ(Read("<b><c/></b></a>", doc.get(), doc->pRoot, XML_MAX_DEPTH - 1).Result, 0);
  EXPECT_EQ(Read("", doc.get(), doc->pRoot, XML_MAX_DEPTH).Result, 0);
  EXPECT_EQ(Read("", doc.get(), doc->pRoot, XML_MAX_DEPTH + 1).Result, -8);
}

TEST(Parse, AppendsToWhatIsThere) {
  DOC doc(XML_CreateDoc("root"));
  XML_AddChild(doc.get(), doc->pRoot, "a");
  const OUTCOME outcome = Read("<b><c/></b><d/></ROOT> left <", doc.get(), doc->pRoot);
  EXPECT_EQ(outcome.Result, 0);
  EXPECT_EQ(outcome.Pos, strlen("<b><c/></b><d/></ROOT>"));
  EXPECT_EQ(Read("<e/></f>", doc.get(), doc->pRoot).Result, -5);
  XML_AddChild(doc.get(), doc->pRoot, "g");
  EXPECT_EQ(Read("<top/><top2/>", doc.get()).Tree, "root{a b{c } d e g } top top2 ");
  const char* pPos = "<a/>";
  EXPECT_EQ(XML_Parse(nullptr, &pPos, nullptr, 0), -1);
}

TEST(Skip, TellsOfComments) {
  for (const auto& [text, result, left] :
       {std::tuple(" \t\r\n\v", 0, "\v"), std::tuple("<!-", 0, "<!-"), std::tuple(" <!----> <!----><", 1, "<!----><"),
        std::tuple("<!--->x", -1, "")}) {
    const char* pPos = text;
    EXPECT_EQ(XML_SkipWS(&pPos), result) << text;
    EXPECT_STREQ(pPos, left);
    EXPECT_EQ(XML_SkipAll(&(pPos = text)), result < 0 ? -1 : 0) << text;
    EXPECT_STREQ(pPos, result == 1 ? "<" : left);
  }
}

// Texts of some megabytes that a reader which looks twice at anything would not finish in a lifetime.
TEST(Parse, ReadsHostileTextsOnce) {
  constexpr size_t COUNT = 500000;
  for (const auto& [start, repeated, result] :
       {std::tuple("<a>", "<!---->", 0), std::tuple("<a/>", "<!--", 0), std::tuple("<a/><!--", "->", 0),
        std::tuple("<a><!DOCTYPE", " ", 0), std::tuple("<a>", "<!DOCTYPE><b/>", 0), std::tuple("<a ", "x=\"1\" ", -6),
        std::tuple("<a x", "<!---->", -6), std::tuple("<a ", "n", -6), std::tuple("<", "n", -3),
        std::tuple("<?xml", " <!-- -->", 0), std::tuple("", "<b/>", 0), std::tuple("<a x=\"", "<", -6)}) {
    EXPECT_EQ(Read(start + Repeat(repeated, COUNT)).Result, result) << start << repeated;
  }
}

// With more and more room in the arena: what has none fails, or is lost with its list.
TEST(Parse, FailsOrDropsAttributesWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  std::vector<std::pair<int32_t, std::string>> outcomes;
  for (uint32_t room = 0; outcomes.empty() || outcomes.back().first != 0; room += 8) {
    const DOC doc = MakeEmptyDoc();
    LeaveRoom(doc.get(), room);
    const SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
    const OUTCOME outcome = Read("<element x=\"1\" y = \"2\" z=\"3\"/><b/>", doc.get());
    if (outcomes.empty() || outcomes.back().second != outcome.Tree) {
      outcomes.emplace_back(outcome.Result, outcome.Tree);
    }
  }
  const decltype(outcomes) expected = {
      {-1, ""}, {-6, "element "}, {-1, "element(x=1 y=2 z=3) "}, {0, "element(x=1 y=2 z=3) b "}};
  EXPECT_EQ(outcomes, expected);
}

TEST(Load, ReadsAWholeFileOrNothing) {
  const TEMP_DIR dir;
  for (const auto& [text, tree] : {std::pair("<a x=\"1\"><b/></a>"s, "a(x=1){b } "), std::pair("<a/>\0<b/>text"s, "a "),
                                   std::pair("\0<a/>"s, "none"), std::pair(""s, "none"),
                                   std::pair(" <!-- --> "s, "none"), std::pair("<a/>text"s, "none")}) {
    const std::string path = dir.AddFile("file", text);
    const int fd = open(path.c_str(), O_RDONLY);
    lseek(fd, 1, SEEK_SET);
    EXPECT_EQ(TreeOf(DOC(XML_LoadFd(fd))), tree);
    EXPECT_EQ(TreeOf(DOC(XML_LoadFile(path.c_str()))), tree);
    close(fd);
  }
  EXPECT_EQ(XML_LoadFd(-1), nullptr);
  for (const char* path : {dir.Path.c_str(), "/tmp/nordax_xml_missing", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(XML_LoadFile(path), nullptr);
  }
}

// A file of several blocks of the arena.
TEST(Load, IsWholeOrFailsWhenCallsFail) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "<a>" + Repeat("<b/>", 100000) + "</a>");
  const auto load = [&] { return TreeOf(DOC(XML_LoadFile(path.c_str()))); };
  const std::string tree = load();
  const int nextFd = open(path.c_str(), O_RDONLY);
  close(nextFd);
  for (const FAULT_CALL call : {FAULT_CALL::MALLOC, FAULT_CALL::READ}) {
    SweepFaults(call, EIO, [&](const SCOPED_FAULT& fault) {
      const std::string loaded = load();
      ASSERT_TRUE(loaded == (fault.WasHit() ? "none" : tree));
      ASSERT_GE(fault.NumCalls(), 1u);
    });
  }
  for (const FAULT& fault :
       {FAULT{FAULT_CALL::READ, 1, 0, UINT32_MAX, FAULT_KIND::SHORT}, FAULT{FAULT_CALL::READ, 1, EINTR, 3}}) {
    const SCOPED_FAULT scoped(fault);
    EXPECT_TRUE(load() == tree && scoped.WasHit());
  }
  // The second read fails, behind the first half of the file.
  int numReads = 0;
  const auto closeSecond = [&] { numReads++ == 1 ? close(nextFd) : 0; };
  {
    const SCOPED_FAULT fault({FAULT_CALL::READ, 1, 0, UINT32_MAX, FAULT_KIND::SHORT, closeSecond});
    EXPECT_EQ(load(), "none");
  }
  const auto cutFile = [&] { std::filesystem::resize_file(path, strlen("<a><b/>")); };
  const SCOPED_FAULT cut({FAULT_CALL::READ, 1, 0, 1, FAULT_KIND::NONE, cutFile});
  EXPECT_EQ(load(), "a{b } ");
  const int fd = open(path.c_str(), O_RDONLY);
  close(fd);
  EXPECT_EQ(fd, nextFd);
}

// ---- Building ----

std::string Save(const DOC& doc, uint32_t flags = XML_SAVE_NO_DECL) {
  std::string text(XML_MAX_SAVE_BYTES, '\0');
  const int32_t result = XML_Save(doc.get(), text.data(), XML_MAX_SAVE_BYTES, flags);
  EXPECT_GE(result, 0);
  text.resize(static_cast<size_t>(std::max(result, 0)));
  return text;
}

TEST(Tree, IsBuiltAndSaved) {
  DOC doc(XML_CreateDoc("Root"));
  XML_DOC* pDoc = doc.get();
  XML_ELEMENT* pRoot = XML_GetRoot(pDoc);
  XML_ELEMENT* pA = XML_AddChild(pDoc, pRoot, "a");
  XML_ELEMENT* pB = XML_AddChildUnique(pDoc, pRoot, "b");
  XML_ELEMENT* pC = XML_AddSibling(pDoc, pA, "c");
  XML_ELEMENT* pSecondA = XML_AddChild(pDoc, pRoot, "a");
  XML_ELEMENT* pTop = XML_AddSibling(pDoc, pRoot, "Top");
  XML_ELEMENT* pLast = XML_AddSiblingUnique(pDoc, pRoot, "Last");
  EXPECT_TRUE(XML_AddChildUnique(pDoc, pRoot, "A") == pA && XML_AddSiblingUnique(pDoc, pB, "A") == pA);
  EXPECT_TRUE(XML_FindChild(pDoc, pRoot, "A") == pA && XML_FindSibling(pDoc, pB, "A") == pSecondA);
  EXPECT_TRUE(XML_AddSiblingUnique(pDoc, pTop, "ROOT") == pRoot && XML_FindTop(pDoc, "last") == pLast);
  EXPECT_TRUE(XML_FindChild(pDoc, pA, "a") == nullptr && XML_FindTop(pDoc, "a") == nullptr);
  EXPECT_TRUE(XML_SetText(pDoc, pC, "B", "<text>") == pB && XML_SetText(pDoc, pC, "x", "text") == nullptr);
  EXPECT_EQ(XML_SetText(pDoc, pLast, "top", "more"), pTop);
  XML_AddChild(pDoc, XML_AddChild(pDoc, pTop, "d"), "e");

  for (const char* name : {"v", "width", "x", "y", "z"}) {
    EXPECT_EQ(XML_SetAttr(pDoc, pA, name, name), 0);
  }
  EXPECT_TRUE(XML_SetAttr(pDoc, pA, "Width", "a longer one: <&>") == 0 && XML_SetAttr(pDoc, pA, "y", nullptr) == 0);
  for (const char* name : {"v", "X", "z"}) {
    const XML_ATTR* pAttr = XML_FindAttr(pDoc, pA, name);
    const XML_ATTR* pNext = pAttr->pNext;
    EXPECT_EQ(XML_RemoveAttr(pDoc, pA, name), 0);
    EXPECT_EQ(pAttr->pNext, pNext);  // For a caller who follows the links while removing.
    EXPECT_TRUE(XML_RemoveAttr(pDoc, pA, name) == 1 && XML_FindAttr(pDoc, pA, name) == nullptr);
  }
  XML_SetAttr(pDoc, pA, "new", "1");

  GUARDED_BLOCK block;
  char* p = block.Take(2);
  EXPECT_TRUE(XML_GetName(pDoc, pRoot, p, 2) == 4 && p == "R"s);
  const XML_ATTR* pFirst = XML_GetFirstAttr(pDoc, pA, nullptr, 2);
  EXPECT_TRUE(XML_GetAttrValue(pDoc, pFirst, p, 2) == 17 && p == "a"s);
  EXPECT_TRUE(XML_GetFirstAttr(pDoc, pA, p, 2) == pFirst && p == "w"s);

  TreeOf(doc);  // Checks the links.
  const std::string text =
      "<Root>\r\n  <a width=\"a longer one: <&>\" y=\"\" new=\"1\"/>\r\n  <b><text></b>\r\n  <c/>\r\n  "
      "<a/>\r\n</Root>\r\n"
      "<Top>more\r\n  <d>\r\n    <e/>\r\n  </d>\r\n</Top>\r\n<Last/>\r\n";
  EXPECT_EQ(Save(doc, 0xFF), text);
  EXPECT_EQ(Save(doc, 0xFE), DECLARATION + text);
}

TEST(Tree, RefusesNullAndEmptyArguments) {
  DOC doc(XML_CreateDoc("a"));
  XML_DOC* pDoc = doc.get();
  XML_ELEMENT* pRoot = doc->pRoot;
  char acText[8];
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    for (auto* pfAdd : {XML_AddChild, XML_AddChildUnique, XML_AddSibling, XML_AddSiblingUnique}) {
      EXPECT_TRUE(pfAdd(pDoc, pRoot, name) == nullptr && pfAdd(pDoc, nullptr, "b") == nullptr);
    }
    EXPECT_TRUE(XML_SetText(pDoc, pRoot, name, "t") == nullptr && XML_SetText(pDoc, pRoot, "a", name) == nullptr);
    EXPECT_TRUE(XML_CreateDoc(name) == nullptr && XML_SetAttr(pDoc, pRoot, name, "1") == -1);
  }
  EXPECT_TRUE(XML_SetAttrU32(nullptr, pRoot, "x", 1) == -1 && XML_RemoveAttr(pDoc, nullptr, nullptr) == -1);
  EXPECT_TRUE(XML_Save(pDoc, nullptr, 8, 0) == -1 && XML_Save(nullptr, acText, 8, 0) == -1);
}

TEST(Tree, StaysAsItWasWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  const std::string longName(OTALLOC_BLOCK_SIZE, 'n');  // Needs a block of its own.
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    const DOC created(XML_CreateDoc(longName.c_str()));
    ASSERT_EQ(created == nullptr, fault.WasHit());
  });
  DOC doc(XML_CreateDoc("a"));
  XML_SetAttr(doc.get(), doc->pRoot, "x", "1");
  XML_AddChild(doc.get(), doc->pRoot, "b");
  LeaveRoom(doc.get(), 8);
  const SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
  EXPECT_EQ(XML_AddChild(doc.get(), doc->pRoot, "c"), nullptr);
  EXPECT_EQ(XML_AddSiblingUnique(doc.get(), doc->pRoot, "c"), nullptr);
  EXPECT_EQ(XML_SetAttr(doc.get(), doc->pRoot, "y", "2"), -1);
  EXPECT_EQ(XML_SetAttrDouble(doc.get(), doc->pRoot, "x", 0.1), -1);
  EXPECT_EQ(TreeOf(doc), "a(x=1){b } ");
  EXPECT_EQ(XML_SetAttr(doc.get(), doc->pRoot, "x", "fits"), 0);
  EXPECT_EQ(TreeOf(doc), "a(x=fits){b } ");
  char acText[40] = "";
  EXPECT_TRUE(XML_Save(doc.get(), acText, 40, XML_SAVE_NO_DECL) == -2 && acText[0] == '\0');
  EXPECT_EQ(XML_CreateDoc("a"), nullptr);
}

// ---- Saving ----

TEST(Save, FillsWhatTheCallerHas) {
  DOC doc(XML_CreateDoc("a"));
  XML_SetAttr(doc.get(), XML_AddChild(doc.get(), doc->pRoot, "b"), "x", "1");
  const std::string text = std::string(DECLARATION) + "<a>\r\n  <b x=\"1\"/>\r\n</a>\r\n";
  GUARDED_BLOCK block;
  for (size_t size = 0; size < text.size() + 3; size++) {
    char* p = block.Take(size);
    EXPECT_EQ(XML_Save(doc.get(), p, static_cast<uint32_t>(size), 0),
              size < text.size() ? -2 : static_cast<int32_t>(text.size()));
    EXPECT_EQ(std::string(p, size), (text + "\xA5\xA5").substr(0, size));
  }
  doc->pRoot = nullptr;
  EXPECT_EQ(XML_Save(doc.get(), block.Take(0), 0, XML_SAVE_NO_DECL), 0);
}

// Texts around the limit, with the last byte in each of the pieces that are written at once.
TEST(Save, WritesNothingBeyondItsLimit) {
  const std::string padding(XML_MAX_SAVE_BYTES, 'p');
  for (uint32_t missing = 60; missing-- > 0;) {
    DOC doc(XML_CreateDoc("a"));
    XML_ELEMENT* pChild = XML_AddChild(doc.get(), doc->pRoot, "b");
    XML_SetAttr(doc.get(), pChild, "x", &padding[missing]);
    XML_SetText(doc.get(), pChild, "b", "text");
    XML_AddSibling(doc.get(), pChild, "c");
    const size_t length = XML_MAX_SAVE_BYTES - missing + strlen("<a>\r\n  <b x=\"\">text</b>\r\n  <c/>\r\n</a>\r\n");
    const bool fits = length <= XML_MAX_SAVE_BYTES;
    std::string buffer(XML_MAX_SAVE_BYTES + 100, '?');
    ASSERT_EQ(XML_Save(doc.get(), buffer.data(), static_cast<uint32_t>(buffer.size()), XML_SAVE_NO_DECL),
              fits ? static_cast<int32_t>(length) : -3);
    ASSERT_EQ(buffer.substr(0, 3), fits ? "<a>" : "???");
  }
}

// ---- Typed values ----

TEST(TypedValue, IsStoredAsText) {
  DOC doc(XML_CreateDoc("a"));
  XML_DOC* pDoc = doc.get();
  XML_ELEMENT* pRoot = doc->pRoot;
  XML_SetAttrBool(pDoc, pRoot, "b1", 0x80000000);
  EXPECT_EQ(XML_SetAttrBool(pDoc, pRoot, "b0", 0), 0);
  XML_SetAttrU32(pDoc, pRoot, "u", UINT32_MAX);
  XML_SetAttrI32(pDoc, pRoot, "i", INT32_MIN);
  XML_SetAttrHex(pDoc, pRoot, "h", 0xFEDCBA98);
  XML_SetAttrHex(pDoc, pRoot, "h0", 0);
  XML_SetAttrDouble(pDoc, pRoot, "d", 0.1);
  XML_SetAttrDouble(pDoc, pRoot, "inf", INFINITY);
  XML_SetAttrDouble(pDoc, pRoot, "least", -std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(TreeOf(doc),
            "a(b1=1 b0=0 u=4294967295 i=-2147483648 h=0xFEDCBA98 h0=0x0 d=0.10000000000000001 inf=inf "
            "least=-4.9406564584124654e-324) ");
}

TEST(TypedValue, IsReadFromText) {
  const struct {
    const char* pText;
    int32_t Result;  // Of the readers of what has no sign; when it is -1 their values stay.
    uint32_t Unsigned;
    int32_t Integer;
    double Double;
  } CASES[] = {
      {"", -1, 7, 0, 0},
      {"2", 0, 2, 2, 2},
      {"0X1f,", 0, 31, 0, 31},
      {"-7", -1, 7, -7, -7},
      {" 5", -1, 7, 5, 5},
      {"4294967295", 0, 4294967295, -1, 4294967295.0},
      {"12.75e1x", 0, 12, 12, 127.5},
      {"010", 0, 10, 10, 10},
      {"0", 0, 0, 0, 0},
  };
  for (const auto& test : CASES) {
    SCOPED_TRACE(test.pText);
    DOC doc(XML_CreateDoc("a"));
    XML_SetAttr(doc.get(), doc->pRoot, "x", test.pText);
    const XML_ATTR* pAttr = doc->pRoot->pFirstAttr;
    uint8_t truth = 7;
    uint32_t number = 7;
    int32_t integer = 7;
    double real = 7;
    EXPECT_EQ(XML_GetAttrBool(doc.get(), pAttr, &truth), test.Result);
    EXPECT_EQ(truth, test.Result < 0 ? 7 : test.Unsigned != 0);
    EXPECT_TRUE(XML_GetAttrU32(doc.get(), pAttr, &number) == test.Result && number == test.Unsigned);
    EXPECT_TRUE(XML_GetAttrInt(doc.get(), pAttr, &integer) == 0 && integer == test.Integer);
    EXPECT_TRUE(XML_GetAttrDouble(doc.get(), pAttr, &real) == 0 && real == test.Double);
  }
}

}  // namespace
