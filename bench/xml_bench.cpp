// Loading and saving a hive beside pugixml, TinyXML-2 and expat: keys four to six deep with ten attributes each, as the
// registry writes them, in a text of 4 KiB and one of 1 MiB. Each library loads from memory into a tree that outlives
// the text, and saves into memory; expat makes no tree and takes no copy, so that its row shows what scanning alone
// costs. A second set appends and finds children of a key that has many.

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tinyxml2.h>

#include <pugixml.hpp>
#include <random>
#include <string>
#include <vector>

#include "xml/xml.h"

namespace {

// Both leave room for what ends the text: the large one just fits into what XML_Save can write.
constexpr size_t SMALL_BYTES = 3600;
constexpr size_t LARGE_BYTES = XML_MAX_SAVE_BYTES - 2000;

// A hive in the form in which it is saved.
class HIVE {
 public:
  explicit HIVE(size_t numBytes) : Size(numBytes) {
    Text = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n<Registry>\r\n";
    while (Text.size() < Size) {
      AddKey(1);
    }
    Text += "</Registry>\r\n";
  }

  std::string Text;

 private:
  void AddKey(uint32_t level) {
    static const char* const NAMES[] = {"Software", "Settings", "Probe", "Tamsel", "RecentFiles", "Window", "Target"};
    const std::string name = NAMES[engine() % std::size(NAMES)] + std::to_string(engine() % 1000);
    Text += std::string(2 * level, ' ') + '<' + name;
    for (uint32_t i = 0; i < 5; i++) {
      AddValue(i);
    }
    const uint32_t numChildren = Text.size() > Size || level == 6 ? 0 : level < 4 ? 2 : engine() % 2;
    if (numChildren == 0) {
      Text += "/>\r\n";
      return;
    }
    Text += ">\r\n";
    for (uint32_t i = 0; i < numChildren && (i == 0 || Text.size() < Size); i++) {
      AddKey(level + 1);
    }
    Text += std::string(2 * level, ' ') + "</" + name + ">\r\n";
  }

  // A value is two attributes, its text and its type. Peers refuse a name that occurs twice.
  void AddValue(uint32_t index) {
    static const char* const NAMES[] = {"Path", "Speed", "Interface", "SerialNumber", "LastUsed", "Count"};
    static const char* const TEXTS[] = {"/home/user/projects/firmware/build/release/image.hex", "SWD", "0012345678",
                                        "Nordax probe with a nickname", ""};
    const std::string name = NAMES[engine() % std::size(NAMES)] + std::to_string(index);
    char acNumber[16];
    snprintf(acNumber, sizeof(acNumber), "0x%08X", static_cast<uint32_t>(engine()));
    const bool isNumber = engine() % 2 != 0;
    Text += ' ' + name + "=\"" + (isNumber ? acNumber : TEXTS[engine() % std::size(TEXTS)]) + "\" " + name +
            "_NORDAXRegType=\"" + (isNumber ? "SYS_REG_TYPE_DWORD" : "SYS_REG_TYPE_SZ") + '"';
  }

  const size_t Size;
  std::mt19937 engine{1};
};

const HIVE& HiveOf(const benchmark::State& state) {
  static const HIVE SMALL(SMALL_BYTES);
  static const HIVE LARGE(LARGE_BYTES);
  return state.range(0) == SMALL_BYTES ? SMALL : LARGE;
}

void CountBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * HiveOf(state).Text.size()));
}

XML_DOC* Load(const std::string& text) {
  XML_DOC* pDoc = XML_CreateDoc("Empty");
  pDoc->pRoot = nullptr;
  const char* pPos = text.c_str();
  if (XML_Parse(pDoc, &pPos, nullptr, 0) != 0) {
    abort();
  }
  return pDoc;
}

void Load(benchmark::State& state) {
  const std::string& text = HiveOf(state).Text;
  for (auto _ : state) {
    XML_DOC* pDoc = Load(text);
    benchmark::DoNotOptimize(pDoc->pRoot);
    XML_FreeDoc(pDoc);
  }
  CountBytes(state);
}

void LoadPugixml(benchmark::State& state) {
  const std::string& text = HiveOf(state).Text;
  for (auto _ : state) {
    pugi::xml_document doc;
    benchmark::DoNotOptimize(doc.load_buffer(text.data(), text.size()));
  }
  CountBytes(state);
}

void LoadTinyXml2(benchmark::State& state) {
  const std::string& text = HiveOf(state).Text;
  for (auto _ : state) {
    tinyxml2::XMLDocument doc;
    benchmark::DoNotOptimize(doc.Parse(text.data(), text.size()));
  }
  CountBytes(state);
}

// Expat, bound while the benchmark runs: its XML_Parse cannot be linked beside ours.
struct EXPAT {
  using START_FUNC = void(void* pCount, const char* name, const char** attributes);
  using END_FUNC = void(void* pCount, const char* name);

  void* (*pfCreate)(const char* encoding);
  void (*pfSetUserData)(void* pParser, void* pUserData);
  void (*pfSetElementHandler)(void* pParser, START_FUNC* pfStart, END_FUNC* pfEnd);
  int (*pfParse)(void* pParser, const char* text, int length, int isFinal);
  void (*pfFree)(void* pParser);

  bool Bind() {
    void* pLibrary = dlopen("libexpat.so.1", RTLD_NOW | RTLD_LOCAL);
    return pLibrary != nullptr && Bind(pLibrary, "XML_ParserCreate", pfCreate) &&
           Bind(pLibrary, "XML_SetUserData", pfSetUserData) &&
           Bind(pLibrary, "XML_SetElementHandler", pfSetElementHandler) && Bind(pLibrary, "XML_Parse", pfParse) &&
           Bind(pLibrary, "XML_ParserFree", pfFree);
  }

 private:
  template <typename FUNC>
  static bool Bind(void* pLibrary, const char* name, FUNC*& pf) {
    pf = reinterpret_cast<FUNC*>(dlsym(pLibrary, name));
    return pf != nullptr;
  }
};

void ScanExpat(benchmark::State& state) {
  EXPAT expat;
  if (!expat.Bind()) {
    state.SkipWithError("libexpat.so.1 is not installed");
    return;
  }
  const std::string& text = HiveOf(state).Text;
  size_t numElements = 0;
  for (auto _ : state) {
    void* pParser = expat.pfCreate(nullptr);
    expat.pfSetUserData(pParser, &numElements);
    expat.pfSetElementHandler(
        pParser, [](void* pCount, const char*, const char**) { ++*static_cast<size_t*>(pCount); },
        [](void*, const char*) {});
    if (expat.pfParse(pParser, text.data(), static_cast<int>(text.size()), 1) != 1) {
      abort();
    }
    expat.pfFree(pParser);
  }
  benchmark::DoNotOptimize(numElements);
  CountBytes(state);
}

void Save(benchmark::State& state) {
  XML_DOC* pDoc = Load(HiveOf(state).Text);
  std::vector<char> buffer(XML_MAX_SAVE_BYTES);
  for (auto _ : state) {
    if (XML_Save(pDoc, buffer.data(), static_cast<uint32_t>(buffer.size()), 0) !=
        static_cast<int32_t>(HiveOf(state).Text.size())) {
      abort();
    }
    benchmark::ClobberMemory();
  }
  XML_FreeDoc(pDoc);
  CountBytes(state);
}

// Takes the text like the buffer above: into memory that is there.
struct MEMORY_WRITER : pugi::xml_writer {
  std::vector<char> Buffer = std::vector<char>(XML_MAX_SAVE_BYTES * 2);
  size_t Length = 0;

  void write(const void* pData, size_t numBytes) override {
    memcpy(Buffer.data() + Length, pData, numBytes);
    Length += numBytes;
  }
};

void SavePugixml(benchmark::State& state) {
  pugi::xml_document doc;
  doc.load_string(HiveOf(state).Text.c_str());
  MEMORY_WRITER writer;
  for (auto _ : state) {
    writer.Length = 0;
    doc.save(writer, "  ");
    benchmark::ClobberMemory();
  }
  CountBytes(state);
}

void SaveTinyXml2(benchmark::State& state) {
  tinyxml2::XMLDocument doc;
  doc.Parse(HiveOf(state).Text.c_str());
  for (auto _ : state) {
    tinyxml2::XMLPrinter printer;
    doc.Print(&printer);
    benchmark::DoNotOptimize(printer.CStr());
  }
  CountBytes(state);
}

BENCHMARK(Load)->Arg(SMALL_BYTES)->Arg(LARGE_BYTES);
BENCHMARK(LoadPugixml)->Arg(SMALL_BYTES)->Arg(LARGE_BYTES);
BENCHMARK(LoadTinyXml2)->Arg(SMALL_BYTES)->Arg(LARGE_BYTES);
BENCHMARK(ScanExpat)->Arg(SMALL_BYTES)->Arg(LARGE_BYTES);
BENCHMARK(Save)->Arg(SMALL_BYTES)->Arg(LARGE_BYTES);
BENCHMARK(SavePugixml)->Arg(SMALL_BYTES)->Arg(LARGE_BYTES);
BENCHMARK(SaveTinyXml2)->Arg(SMALL_BYTES)->Arg(LARGE_BYTES);

std::string ChildName(int64_t i) {
  return "Key" + std::to_string(100000 + i);
}

void AddChildren(benchmark::State& state) {
  for (auto _ : state) {
    XML_DOC* pDoc = XML_CreateDoc("Registry");
    for (int64_t i = 0; i < state.range(0); i++) {
      XML_AddChild(pDoc, pDoc->pRoot, "Key");
    }
    XML_FreeDoc(pDoc);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void AddChildrenPugixml(benchmark::State& state) {
  for (auto _ : state) {
    pugi::xml_document doc;
    pugi::xml_node root = doc.append_child("Registry");
    for (int64_t i = 0; i < state.range(0); i++) {
      root.append_child("Key");
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void FindLastChild(benchmark::State& state) {
  XML_DOC* pDoc = XML_CreateDoc("Registry");
  for (int64_t i = 0; i < state.range(0); i++) {
    XML_AddChild(pDoc, pDoc->pRoot, ChildName(i).c_str());
  }
  const std::string name = ChildName(state.range(0) - 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(XML_FindChild(pDoc, pDoc->pRoot, name.c_str()));
  }
  XML_FreeDoc(pDoc);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void FindLastChildPugixml(benchmark::State& state) {
  pugi::xml_document doc;
  pugi::xml_node root = doc.append_child("Registry");
  for (int64_t i = 0; i < state.range(0); i++) {
    root.append_child(ChildName(i).c_str());
  }
  const std::string name = ChildName(state.range(0) - 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(root.child(name.c_str()));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(AddChildren)->Arg(10000);
BENCHMARK(AddChildrenPugixml)->Arg(10000);
BENCHMARK(FindLastChild)->Arg(1000);
BENCHMARK(FindLastChildPugixml)->Arg(1000);

}  // namespace
