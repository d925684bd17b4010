#pragma once

#include <cstddef>
#include <string>

// The inputs of the measurements: made from a size alone, always the same, and cut at the first whole line
// beyond it.
namespace zekara::benchmarks {

// Sections of 40 keys, as a large configuration file would have them: words, numbers and quoted paths.
std::string IniOfSections(std::size_t size);
// The same lines in one section.
std::string IniOfOneSection(std::size_t size);
// One key with a list: "list = a, b, c".
std::string IniOfOneList(std::size_t size);
// One key, continued by a line "," for each further value.
std::string IniOfContinuations(std::size_t size);
// Sections of one key.
std::string IniOfSmallSections(std::size_t size);
// A value, and a comment, that takes the whole size.
std::string IniOfOneWord(std::size_t size);
std::string IniOfOneComment(std::size_t size);

// A request whose patch has sections of 40 keys with strings, integers, booleans and lists.
std::string PlistOfSections(std::size_t size);
// One dictionary, with keys in ascending and in no order.
std::string PlistOfOneDictionary(std::size_t size);
std::string PlistOfOneShuffledDictionary(std::size_t size);
// One array of integers.
std::string PlistOfOneArray(std::size_t size);
// Towers of arrays that stand as deep in one another as is allowed.
std::string PlistOfTowers(std::size_t size);
// One string, of letters alone and of references alone.
std::string PlistOfOneString(std::size_t size);
std::string PlistOfReferences(std::size_t size);
// Small messages one after the other, each a property list with one short string.
std::string SmallMessages(std::size_t size);

}  // namespace zekara::benchmarks
