// Building, searching and changing trees against a model that also knows how they are saved; the writer's limits; typed
// values.

#include "xml/xml.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <math.h>
#include <strings.h>

#include <deque>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tests/faults.h"
#include "tests/support.h"
#include "tests/xml_support.h"

namespace {

constexpr char DECLARATION[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n";

// The text of a document, with the result checked; a text that is not whole gives an empty one.
std::string Save(const DOC& doc, uint32_t flags = XML_SAVE_NO_DECL, size_t size = XML_MAX_SAVE_BYTES) {
  std::string text(size, '\0');
  const int32_t result = XML_Save(doc.get(), text.data(), static_cast<uint32_t>(size), flags);
  text.resize(result < 0 ? 0 : static_cast<size_t>(result));
  return text;
}

// ---- Against a model ----

struct MODEL_ELEMENT {
  std::string Name;
  MODEL_ELEMENT* pParent;
  XML_ELEMENT* pTwin;
  std::string Text = {};
  std::vector<std::pair<std::string, std::string>> Attrs = {};
  std::vector<MODEL_ELEMENT*> Children = {};
};

bool IsSame(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

class MODEL {
 public:
  MODEL() { NewElement(nullptr, "Root", Doc->pRoot); }

  // One operation on the document and on the model.
  void Step(RANDOM& random) {
    MODEL_ELEMENT* pElement = &Elements[random.Below(Elements.size())];
    const std::string name = "x" + random.Text("aAbB_-", 2);
    const char* pName = name.c_str();
    XML_ELEMENT* pTwin = pElement->pTwin;
    MODEL_ELEMENT* pFound = Find(pElement->Children, name);
    MODEL_ELEMENT* pSibling = Find(ListOf(pElement->pParent), name);
    auto attr = FindAttr(pElement, name);
    switch (random.Below(8)) {
      case 0:
        NewElement(pElement, name, XML_AddChild(Doc.get(), pTwin, pName));
        break;
      case 1:
        Expect(pFound, pElement, name, XML_AddChildUnique(Doc.get(), pTwin, pName));
        break;
      case 2:
        NewElement(pElement->pParent, name, XML_AddSibling(Doc.get(), pTwin, pName));
        break;
      case 3:
        Expect(pSibling, pElement->pParent, name, XML_AddSiblingUnique(Doc.get(), pTwin, pName));
        break;
      case 4: {
        ASSERT_EQ(XML_FindChild(Doc.get(), pTwin, pName), pFound == nullptr ? nullptr : pFound->pTwin);
        MODEL_ELEMENT* pTop = Find(Top, name);
        ASSERT_EQ(XML_FindTop(Doc.get(), pName), pTop == nullptr ? nullptr : pTop->pTwin);
        break;
      }
      case 5: {
        const std::string value = random.Text("<&v ", 20);
        const bool isNull = random.OneIn(8);
        ASSERT_EQ(XML_SetAttr(Doc.get(), pTwin, pName, isNull ? nullptr : value.c_str()), 0);
        if (attr == pElement->Attrs.end()) {
          attr = pElement->Attrs.insert(attr, {name, ""});
        }
        attr->second = isNull ? "" : value;
        break;
      }
      case 6: {
        const bool isThere = attr != pElement->Attrs.end();
        const XML_ATTR* pAttr = XML_FindAttr(Doc.get(), pTwin, pName);
        ASSERT_EQ(pAttr != nullptr ? pAttr->pValue : "none", isThere ? attr->second : "none");
        ASSERT_EQ(XML_RemoveAttr(Doc.get(), pTwin, pName), isThere ? 0 : 1);
        if (isThere) {
          pElement->Attrs.erase(attr);
        }
        break;
      }
      default:
        ASSERT_EQ(XML_SetText(Doc.get(), pTwin, pName, "text"), pSibling == nullptr ? nullptr : pSibling->pTwin);
        if (pSibling != nullptr) {
          pSibling->Text = "text";
        }
    }
  }

  std::string Save() const {
    std::string text;
    AppendLines(&text, Top, "");
    return text;
  }

  // Takes away what the reader does not accept.
  void DropTexts() {
    for (MODEL_ELEMENT& element : Elements) {
      element.Text.clear();
      element.pTwin->pText = nullptr;
    }
  }

  DOC Doc{XML_CreateDoc("Root")};

 private:
  using LIST = std::vector<MODEL_ELEMENT*>;

  LIST& ListOf(MODEL_ELEMENT* pParent) { return pParent != nullptr ? pParent->Children : Top; }

  static MODEL_ELEMENT* Find(const LIST& list, const std::string& name) {
    auto found = std::find_if(list.begin(), list.end(), [&](const MODEL_ELEMENT* p) { return IsSame(p->Name, name); });
    return found == list.end() ? nullptr : *found;
  }

  static std::vector<std::pair<std::string, std::string>>::iterator FindAttr(MODEL_ELEMENT* p,
                                                                             const std::string& name) {
    return std::find_if(p->Attrs.begin(), p->Attrs.end(), [&](const auto& attr) { return IsSame(attr.first, name); });
  }

  void NewElement(MODEL_ELEMENT* pParent, const std::string& name, XML_ELEMENT* pTwin) {
    ASSERT_NE(pTwin, nullptr);
    Elements.push_back({name, pParent, pTwin});
    ListOf(pParent).push_back(&Elements.back());
  }

  void Expect(const MODEL_ELEMENT* pFound, MODEL_ELEMENT* pParent, const std::string& name, XML_ELEMENT* pTwin) {
    if (pFound != nullptr) {
      ASSERT_EQ(pTwin, pFound->pTwin);
    } else {
      NewElement(pParent, name, pTwin);
    }
  }

  static void AppendLines(std::string* pText, const LIST& list, const std::string& indent) {
    for (const MODEL_ELEMENT* p : list) {
      *pText += indent + "<" + p->Name;
      for (const auto& [name, value] : p->Attrs) {
        pText->append(" ").append(name).append("=\"").append(value).append("\"");
      }
      if (p->Children.empty() && p->Text.empty()) {
        *pText += "/>\r\n";
        continue;
      }
      *pText += ">" + p->Text;
      if (!p->Children.empty()) {
        *pText += "\r\n";
        AppendLines(pText, p->Children, indent + "  ");
        *pText += indent;
      }
      pText->append("</").append(p->Name).append(">\r\n");
    }
  }

  std::deque<MODEL_ELEMENT> Elements;
  LIST Top;
};

TEST(Tree, IsBuiltAndSavedLikeTheModel) {
  RANDOM random(1);
  for (int round = 0; round < 300; round++) {
    MODEL model;
    for (int step = 0; step < 80; step++) {
      ASSERT_NO_FATAL_FAILURE(model.Step(random)) << "round " << round;
    }
    TreeOf(model.Doc);  // Checks the links.
    const std::string text = model.Save();
    ASSERT_EQ(Save(model.Doc), text);
    ASSERT_EQ(Save(model.Doc, 0), DECLARATION + text);
    ASSERT_EQ(Save(model.Doc, ~XML_SAVE_NO_DECL), DECLARATION + text);

    model.DropTexts();
    const std::string plainText = Save(model.Doc, 0);
    DOC doc = MakeEmptyDoc();
    const char* pPos = plainText.c_str();
    ASSERT_EQ(XML_Parse(doc.get(), &pPos, nullptr, 0), 0) << plainText;
    ASSERT_EQ(TreeOf(doc), TreeOf(model.Doc));
    ASSERT_EQ(Save(doc, 0), plainText);
  }
}

TEST(Tree, RefusesNullAndEmptyArguments) {
  DOC doc(XML_CreateDoc("a"));
  XML_DOC* pDoc = doc.get();
  XML_ELEMENT* pRoot = XML_GetRoot(pDoc);
  char acText[8];
  for (auto* pfAdd : {XML_AddChild, XML_AddChildUnique, XML_AddSibling, XML_AddSiblingUnique}) {
    EXPECT_TRUE(pfAdd(pDoc, nullptr, "b") == nullptr && pfAdd(nullptr, pRoot, "b") == nullptr);
  }
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    for (auto* pfFindOrAdd :
         {XML_AddChild, XML_AddChildUnique, XML_AddSibling, XML_AddSiblingUnique, XML_FindSibling, XML_FindChild}) {
      EXPECT_EQ(pfFindOrAdd(pDoc, pRoot, name), nullptr);
    }
    EXPECT_TRUE(XML_SetText(pDoc, pRoot, name, "t") == nullptr && XML_SetText(pDoc, pRoot, "a", name) == nullptr);
    EXPECT_TRUE(XML_CreateDoc(name) == nullptr && XML_FindTop(pDoc, name) == nullptr);
    EXPECT_EQ(XML_SetAttr(pDoc, pRoot, name, "1"), -1);
    EXPECT_EQ(XML_FindAttr(pDoc, pRoot, name), nullptr);
    EXPECT_EQ(XML_RemoveAttr(pDoc, pRoot, name), 1);
  }
  EXPECT_TRUE(XML_FindSibling(pDoc, nullptr, "a") == nullptr && XML_FindChild(pDoc, nullptr, "a") == nullptr);
  EXPECT_TRUE(XML_GetNext(pDoc, nullptr) == nullptr && XML_GetFirstChild(pDoc, nullptr) == nullptr);
  EXPECT_TRUE(XML_GetRoot(nullptr) == nullptr && XML_FindTop(nullptr, "a") == nullptr && XML_FreeDoc(nullptr) == 0);
  EXPECT_TRUE(XML_SetText(pDoc, nullptr, "a", "t") == nullptr && XML_FindAttr(pDoc, nullptr, "x") == nullptr);
  EXPECT_TRUE(XML_SetAttr(pDoc, nullptr, "x", "1") == -1 && XML_SetAttrU32(nullptr, pRoot, "x", 1) == -1);
  EXPECT_EQ(XML_RemoveAttr(pDoc, nullptr, nullptr), -1);
  EXPECT_EQ(XML_GetFirstAttr(pDoc, nullptr, acText, 8), nullptr);
  EXPECT_TRUE(XML_GetName(pDoc, nullptr, acText, 8) == -1 && XML_GetName(pDoc, pRoot, nullptr, 8) == -1);
  EXPECT_EQ(XML_GetAttrValue(pDoc, nullptr, acText, 8), -1);
  EXPECT_TRUE(XML_Save(pDoc, nullptr, 8, 0) == -1 && XML_Save(nullptr, acText, 8, 0) == -1);
  EXPECT_EQ(TreeOf(doc), "a ");
}

TEST(Tree, CutsCopiesToTheBuffer) {
  DOC doc(XML_CreateDoc("element"));
  XML_SetAttr(doc.get(), doc->pRoot, "Name", "a value");
  GUARDED_BLOCK block;
  for (uint32_t size = 0; size < 10; size++) {
    char* p = block.Take(size);
    const auto expectCopy = [&](const std::string& whole) {
      EXPECT_TRUE(size == 0 || whole.substr(0, size - 1) == p) << size;
    };
    EXPECT_EQ(XML_GetName(doc.get(), doc->pRoot, p, size), 7);
    expectCopy("element");
    const XML_ATTR* pAttr = XML_GetFirstAttr(doc.get(), doc->pRoot, p, size);
    expectCopy("Name");
    EXPECT_EQ(XML_GetAttrValue(doc.get(), pAttr, p, size), 7);
    expectCopy("a value");
  }
  EXPECT_NE(XML_GetFirstAttr(doc.get(), doc->pRoot, nullptr, 10), nullptr);
}

// A caller lists attributes by taking the first one away, or by the links, also while removing.
TEST(Tree, KeepsRemovedAttributesReadable) {
  DOC doc(XML_CreateDoc("a"));
  for (const char* name : {"x", "y", "z"}) {
    XML_SetAttr(doc.get(), doc->pRoot, name, name);
  }
  std::string names;
  for (const XML_ATTR* pAttr = doc->pRoot->pFirstAttr; pAttr != nullptr; pAttr = pAttr->pNext) {
    EXPECT_EQ(XML_RemoveAttr(doc.get(), doc->pRoot, pAttr->pName), 0);
    names += pAttr->pName;
  }
  EXPECT_EQ(names, "xyz");
  EXPECT_EQ(TreeOf(doc), "a ");
}

TEST(Tree, StaysAsItWasWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  DOC doc(XML_CreateDoc("a"));
  XML_SetAttr(doc.get(), doc->pRoot, "x", "1");
  XML_AddChild(doc.get(), doc->pRoot, "b");
  LeaveRoom(doc.get(), 8);
  SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
  EXPECT_EQ(XML_AddChild(doc.get(), doc->pRoot, "c"), nullptr);
  EXPECT_EQ(XML_AddSiblingUnique(doc.get(), doc->pRoot, "c"), nullptr);
  EXPECT_EQ(XML_SetAttr(doc.get(), doc->pRoot, "y", "2"), -1);
  EXPECT_EQ(XML_SetAttr(doc.get(), doc->pRoot, "x", "a longer value"), -1);
  EXPECT_EQ(XML_SetAttrDouble(doc.get(), doc->pRoot, "x", 0.1), -1);
  EXPECT_EQ(TreeOf(doc), "a(x=1){b } ");
  EXPECT_EQ(XML_SetAttr(doc.get(), doc->pRoot, "x", "fits"), 0);
  EXPECT_EQ(TreeOf(doc), "a(x=fits){b } ");
}

TEST(Tree, IsCreatedWholeOrNotAtAll) {
  FAULTS_REQUIRE();
  const std::string name(OTALLOC_BLOCK_SIZE, 'n');  // Needs a block of its own.
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    DOC doc(XML_CreateDoc(name.c_str()));
    ASSERT_EQ(doc == nullptr, fault.WasHit());
    ASSERT_EQ(doc == nullptr ? name : doc->pRoot->pName, name);
  });
}

TEST(MakeName, LeavesOnlyWhatNamesHave) {
  for (auto [text, name] : std::vector<std::pair<std::string, std::string>>{
           {"", ""},
           {"Name_9-z", "Name_9-z"},
           {"-a-b", "_a-b"},
           {"--", "_-"},
           {"9 a.b\tc/d:\"", "9_a_b_c_d__"},
           {"\xC3\xA4@[`{", "______"},
       }) {
    XML_MakeName(text.data());
    EXPECT_EQ(text, name);
  }
}

// ---- The writer's limits ----

TEST(Save, FillsWhatTheCallerHas) {
  DOC doc(XML_CreateDoc("a"));
  XML_SetAttr(doc.get(), XML_AddChild(doc.get(), doc->pRoot, "b"), "x", "1");
  const std::string text = std::string(DECLARATION) + "<a>\r\n  <b x=\"1\"/>\r\n</a>\r\n";
  GUARDED_BLOCK block;
  for (size_t size = 0; size < text.size() + 3; size++) {
    char* p = block.Take(size);
    EXPECT_EQ(XML_Save(doc.get(), p, static_cast<uint32_t>(size), 0),
              size < text.size() ? -2 : static_cast<int32_t>(text.size()));
    const size_t length = std::min(size, text.size());
    EXPECT_EQ(std::string(p, length), text.substr(0, length));
    EXPECT_EQ(std::string(p + length, size - length), std::string(size - length, GUARDED_BLOCK::PATTERN));
  }
  doc->pRoot = nullptr;
  EXPECT_EQ(XML_Save(doc.get(), block.Take(0), 0, XML_SAVE_NO_DECL), 0);
}

// Texts around the limit, with the last byte in each of the pieces that are written at once.
TEST(Save, WritesNothingBeyondItsLimit) {
  std::string buffer(XML_MAX_SAVE_BYTES + 100, '?');
  const auto save = [&](const DOC& doc) {
    return XML_Save(doc.get(), buffer.data(), static_cast<uint32_t>(buffer.size()), XML_SAVE_NO_DECL);
  };
  const std::string padding(XML_MAX_SAVE_BYTES, 'p');
  for (uint32_t missing = 60; missing-- > 0;) {
    DOC doc(XML_CreateDoc("a"));
    XML_ELEMENT* pChild = XML_AddChild(doc.get(), doc->pRoot, "b");
    XML_SetAttr(doc.get(), pChild, "x", &padding[missing]);
    XML_SetText(doc.get(), pChild, "b", "text");
    XML_AddSibling(doc.get(), pChild, "c");
    const size_t length = XML_MAX_SAVE_BYTES - missing + strlen("<a>\r\n  <b x=\"\">text</b>\r\n  <c/>\r\n</a>\r\n");
    ASSERT_EQ(save(doc), length <= XML_MAX_SAVE_BYTES ? static_cast<int32_t>(length) : -3) << missing;
    ASSERT_EQ(buffer.compare(0, 3, length <= XML_MAX_SAVE_BYTES ? "<a>" : "???"), 0);
    std::fill(buffer.begin(), buffer.end(), '?');
  }
}

// Nothing in the writer depends on how deep the tree is.
TEST(Save, WritesDeepTrees) {
  DOC doc(XML_CreateDoc("a"));
  XML_ELEMENT* pElement = doc->pRoot;
  std::string text = "<a/>\r\n";
  for (int depth = 1; depth < 100000; depth++) {
    if (depth == 500) {
      text = Save(doc);
    }
    pElement = XML_AddChild(doc.get(), pElement, "a");
  }
  EXPECT_NE(text.find("\r\n" + std::string(998, ' ') + "<a/>\r\n" + std::string(996, ' ') + "</a>\r\n"),
            std::string::npos);
  char acByte[1];
  EXPECT_EQ(XML_Save(doc.get(), acByte, 1, 0), -3);
}

TEST(Save, FailsWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  DOC doc(XML_CreateDoc("a"));
  for (int i = 0; i < 3000; i++) {
    XML_AddChild(doc.get(), doc->pRoot, "child");
  }
  const std::string text = Save(doc);
  std::string buffer(text.size(), '?');
  int numFailed = 0;
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    const int32_t result = XML_Save(doc.get(), buffer.data(), static_cast<uint32_t>(buffer.size()), XML_SAVE_NO_DECL);
    ASSERT_EQ(result, fault.WasHit() ? -2 : static_cast<int32_t>(text.size()));
    ASSERT_EQ(buffer, fault.WasHit() ? std::string(text.size(), '?') : text);
    numFailed += result < 0;
  });
  EXPECT_EQ(numFailed, 5);  // 4 KiB at first, then 8, 16, 32 and 64.
}

// ---- Typed values ----

TEST(TypedValue, IsStoredAsText) {
  DOC doc(XML_CreateDoc("a"));
  XML_DOC* pDoc = doc.get();
  XML_ELEMENT* pRoot = doc->pRoot;
  const auto expect = [&](int32_t result, const char* value) {
    EXPECT_EQ(result, 0);
    EXPECT_EQ(TreeOf(doc), std::string("a(x=") + value + ") ");
  };
  expect(XML_SetAttrBool(pDoc, pRoot, "x", 0x80000000), "1");
  expect(XML_SetAttrBool(pDoc, pRoot, "X", 0), "0");
  expect(XML_SetAttrU32(pDoc, pRoot, "x", UINT32_MAX), "4294967295");
  expect(XML_SetAttrHex(pDoc, pRoot, "x", 255), "0xFF");
  expect(XML_SetAttrHex(pDoc, pRoot, "x", 0xFEDCBA98), "0xFEDCBA98");
  expect(XML_SetAttrHex(pDoc, pRoot, "x", 0), "0x0");
  expect(XML_SetAttrI32(pDoc, pRoot, "x", INT32_MIN), "-2147483648");
  expect(XML_SetAttrDouble(pDoc, pRoot, "x", 0.1), "0.10000000000000001");
  expect(XML_SetAttrDouble(pDoc, pRoot, "x", -std::numeric_limits<double>::denorm_min()), "-4.9406564584124654e-324");
  expect(XML_SetAttrDouble(pDoc, pRoot, "x", INFINITY), "inf");
}

TEST(TypedValue, IsReadFromText) {
  constexpr int NONE = -1;
  struct {
    const char* pText;
    int64_t Unsigned;  // NONE: refused, the result stays.
    int32_t Integer;
    double Double;
  } constexpr CASES[] = {
      {"", NONE, 0, 0},
      {"0", 0, 0, 0},
      {"0x0", 0, 0, 0},
      {"2", 2, 2, 2},
      {"0X1f,", 31, 0, 31},
      {"0x", NONE, 0, 0},
      {" 5", NONE, 5, 5},
      {"-7", NONE, -7, -7},
      {"+7", NONE, 7, 7},
      {"yes", NONE, 0, 0},
      {"12.75e1x", 12, 12, 127.5},
      {"010", 10, 10, 10},
      {"4294967295", 4294967295, -1, 4294967295.0},
  };
  for (const auto& testCase : CASES) {
    DOC doc(XML_CreateDoc("a"));
    XML_SetAttr(doc.get(), doc->pRoot, "x", testCase.pText);
    const XML_ATTR* pAttr = XML_FindAttr(doc.get(), doc->pRoot, "x");
    const bool isNone = testCase.Unsigned == NONE;
    uint8_t truth = 7;
    uint32_t number = 7;
    int32_t integer = 7;
    double real = 7;
    EXPECT_EQ(XML_GetAttrBool(doc.get(), pAttr, &truth), isNone ? -1 : 0) << testCase.pText;
    EXPECT_EQ(truth, isNone ? 7 : testCase.Unsigned != 0) << testCase.pText;
    EXPECT_EQ(XML_GetAttrU32(doc.get(), pAttr, &number), isNone ? -1 : 0) << testCase.pText;
    EXPECT_EQ(number, isNone ? 7 : testCase.Unsigned) << testCase.pText;
    EXPECT_EQ(XML_GetAttrInt(doc.get(), pAttr, &integer), 0) << testCase.pText;
    EXPECT_EQ(integer, testCase.Integer) << testCase.pText;
    EXPECT_EQ(XML_GetAttrDouble(doc.get(), pAttr, &real), 0) << testCase.pText;
    EXPECT_EQ(real, testCase.Double) << testCase.pText;
    EXPECT_TRUE(XML_GetAttrBool(nullptr, nullptr, &truth) == -1 && XML_GetAttrBool(nullptr, pAttr, nullptr) == -1);
    EXPECT_TRUE(XML_GetAttrInt(nullptr, nullptr, &integer) == -1 && XML_GetAttrInt(nullptr, pAttr, nullptr) == -1);
    EXPECT_TRUE(XML_GetAttrDouble(nullptr, nullptr, &real) == -1 && XML_GetAttrDouble(nullptr, pAttr, nullptr) == -1);
  }
}

}  // namespace
