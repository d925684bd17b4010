#pragma once

#include <cstddef>
#include <random>
#include <string>

// The inputs of the measurements. Each function makes a text of about `size` bytes that ends with a whole
// line. The same random numbers make the same text, so that an input can be made again from its seed.
namespace zekara::benchmarks {

using Random = std::mt19937_64;

// Sections of 5 to 15 keys, as in configuration files that people write: names of 5 to 14 letters in no
// order; numbers, words, quoted paths and a few lists.
std::string IniOfSections(std::size_t size, Random& random);
// The same lines in one section. No name occurs twice.
std::string IniOfOneSection(std::size_t size, Random& random);
// One key with a list: "list = a, b, c".
std::string IniOfOneList(std::size_t size, Random& random);
// One key whose list has each further value on a line of its own, after a comma.
std::string IniOfContinuations(std::size_t size, Random& random);
// Sections of one key.
std::string IniOfSmallSections(std::size_t size, Random& random);
// A value that takes the whole size, and a comment that does.
std::string IniOfOneWord(std::size_t size, Random& random);
std::string IniOfOneComment(std::size_t size, Random& random);

// A request whose patch has sections of 5 to 15 keys, with names and values as above.
std::string PlistOfSections(std::size_t size, Random& random);
// One dictionary whose keys ascend, and one whose keys come in no order.
std::string PlistOfOneDictionary(std::size_t size, Random& random);
std::string PlistOfOneShuffledDictionary(std::size_t size, Random& random);
// One array of integers.
std::string PlistOfOneArray(std::size_t size, Random& random);
// Arrays nested as deep as the reader allows, one such tower after the other.
std::string PlistOfTowers(std::size_t size, Random& random);
// One string of letters, and one of character references.
std::string PlistOfOneString(std::size_t size, Random& random);
std::string PlistOfReferences(std::size_t size, Random& random);
// Messages one after the other. Each is a property list with one short string.
std::string SmallMessages(std::size_t size, Random& random);

}  // namespace zekara::benchmarks
