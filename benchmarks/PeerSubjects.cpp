// The peers: what a person would link instead of this project. Each does the same job as the subject of
// ZekaraSubjects.cpp in the same row, as far as its interface allows; what it leaves out is in its name or in
// a comment. Options are those that make it accept the same input. Each subject checks its own result, so
// that a peer which stops at an error is not measured as a fast one.

#include <SimpleIni.h>
#include <expat.h>
#include <glib.h>
#include <ini.h>

#include <boost/property_tree/ini_parser.hpp>
#include <cstdlib>
#include <memory>
#include <plist/plist.h>
#include <pugixml.hpp>
#include <sstream>

#include "benchmarks/Subjects.h"

namespace zekara::benchmarks {
namespace {

std::unique_ptr<CSimpleIniA> LoadedBySimpleIni(const std::string& input) {
  auto ini = std::make_unique<CSimpleIniA>(true, true, false);  // UTF-8, repeated keys kept
  Expect(ini->LoadData(input) == SI_OK, "SimpleIni load");
  return ini;
}

struct KeyFileDeleter {
  void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
using KeyFile = std::unique_ptr<GKeyFile, KeyFileDeleter>;

KeyFile LoadedByGLib(const std::string& input) {
  KeyFile file(g_key_file_new());
  Expect(g_key_file_load_from_data(file.get(), input.data(), input.size(), G_KEY_FILE_NONE, nullptr) != 0,
         "GKeyFile load");
  return file;
}

gchar** ListLoadedByGLib(const std::string& input) {
  const KeyFile file(g_key_file_new());
  g_key_file_set_list_separator(file.get(), ',');
  Expect(g_key_file_load_from_data(file.get(), input.data(), input.size(), G_KEY_FILE_NONE, nullptr) != 0,
         "GKeyFile load");
  gchar** const list = g_key_file_get_string_list(file.get(), "Section", "list", nullptr, nullptr);
  Expect(list != nullptr, "GKeyFile list");
  return list;
}

void FreeList(gchar** list) {
  g_strfreev(list);
}

std::string FirstSection(const std::string& input) {
  const std::size_t start = input.find('[') + 1;
  return input.substr(start, input.find(']') - start);
}

using LibplistValue = std::unique_ptr<void, decltype(&plist_free)>;

LibplistValue ParsedByLibplist(const std::string& input) {
  plist_t plist = nullptr;
  plist_from_xml(input.data(), static_cast<std::uint32_t>(input.size()), &plist);
  Expect(plist != nullptr, "libplist parse");
  return {plist, plist_free};
}

void WriteByLibplist(void* plist) {
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(plist, &text, &length);
  Expect(text != nullptr && length > 0, "libplist write");
  plist_mem_free(text);
}

}  // namespace

Subject InihLoad() {
  return {"inih (stores nothing)", [](const std::string& input) {
            return [&input] {
              const auto handler = [](void*, const char*, const char*, const char*) { return 1; };
              Expect(ini_parse_string(input.c_str(), handler, nullptr) == 0, "inih");
            };
          }};
}

Subject SimpleIniLoad() {
  return {"SimpleIni", [](const std::string& input) { return [&input] { LoadedBySimpleIni(input); }; }};
}

Subject SimpleIniPatch() {
  return {"SimpleIni", [](const std::string& input) {
            return [&input, section = FirstSection(input)] {
              const auto ini = LoadedBySimpleIni(input);
              ini->SetValue(section.c_str(), "Patched", "No");
              std::string text;
              Expect(ini->Save(text) == SI_OK && text.size() > input.size() / 2, "SimpleIni save");
            };
          }};
}

Subject GKeyFileLoad() {
  return {"GKeyFile", [](const std::string& input) { return [&input] { LoadedByGLib(input); }; }};
}

Subject GKeyFilePatch() {
  return {"GKeyFile", [](const std::string& input) {
            return [&input, section = FirstSection(input)] {
              const KeyFile file = LoadedByGLib(input);
              g_key_file_set_string(file.get(), section.c_str(), "Patched", "No");
              gsize length = 0;
              gchar* const text = g_key_file_to_data(file.get(), &length, nullptr);
              Expect(length > input.size() / 2, "GKeyFile write");
              g_free(text);
            };
          }};
}

// Includes splitting the list, because ZKAIniParser splits it while it reads.
Subject GKeyFileLoadList() {
  return {"GKeyFile",
          [](const std::string& input) { return [&input] { FreeList(ListLoadedByGLib(input)); }; }};
}

Subject GKeyFilePatchList() {
  return {"GKeyFile", [](const std::string& input) {
            return [&input] {
              gchar** const list = ListLoadedByGLib(input);
              const KeyFile file(g_key_file_new());
              g_key_file_set_list_separator(file.get(), ',');
              g_key_file_set_string_list(file.get(), "Section", "list", list, g_strv_length(list));
              g_key_file_set_string(file.get(), "Section", "Patched", "No");
              gsize length = 0;
              gchar* const text = g_key_file_to_data(file.get(), &length, nullptr);
              Expect(length > input.size() / 2, "GKeyFile write");
              g_free(text);
              FreeList(list);
            };
          }};
}

Subject BoostLoad() {
  return {"boost property_tree", [](const std::string& input) {
            return [&input] {
              std::istringstream stream(input);
              boost::property_tree::ptree tree;
              boost::property_tree::read_ini(stream, tree);
              Expect(!tree.empty(), "boost read");
            };
          }};
}

Subject LibplistParse() {
  return {"libplist", [](const std::string& input) { return [&input] { ParsedByLibplist(input); }; }};
}

Subject LibplistWrite() {
  return {"libplist", [](const std::string& input) {
            const std::shared_ptr<void> plist = ParsedByLibplist(input);
            return [plist] { WriteByLibplist(plist.get()); };
          }};
}

Subject LibplistBoth() {
  return {"libplist", [](const std::string& input) {
            return [&input] { WriteByLibplist(ParsedByLibplist(input).get()); };
          }};
}

// With empty handlers for tags and text, so it builds no tree: this is what checking XML costs by itself.
Subject ExpatParse() {
  return {"expat (no tree)", [](const std::string& input) {
            return [&input] {
              XML_Parser parser = XML_ParserCreate(nullptr);
              XML_SetElementHandler(
                  parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
              XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
              const auto status = XML_Parse(parser, input.data(), static_cast<int>(input.size()), 1);
              Expect(status == XML_STATUS_OK, "expat");
              XML_ParserFree(parser);
            };
          }};
}

// Builds a tree of XML nodes whose texts are still texts: neither numbers nor dates nor Base64 are decoded.
Subject PugixmlParse() {
  return {"pugixml (XML tree)", [](const std::string& input) {
            return [&input] {
              pugi::xml_document document;
              Expect(document.load_buffer(input.data(), input.size()), "pugixml");
            };
          }};
}

}  // namespace zekara::benchmarks
