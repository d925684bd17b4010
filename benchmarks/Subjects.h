#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "benchmarks/Workloads.h"

namespace zekara::benchmarks {

// One library doing one job on an input. prepare() is not measured; the work that it returns is. The work may
// be run any number of times and does the same each time. `input` outlives the work.
struct Subject {
  using Work = std::function<void()>;

  std::string name;
  std::function<Work(const std::string& input)> prepare;
};

// Subjects that do the same job on the same input, and are compared. `size` is for people; `input` makes the
// text from a generator in its initial state.
struct Row {
  std::string job;
  std::string size;
  std::function<std::string(Random)> input;
  std::vector<Subject> subjects;
  bool isGrowth = false;  // only how the time grows with the size is of interest
};

// Ends the program with a message unless `isDone`, because a library that did not do its job must not be
// measured.
void Expect(bool isDone, const char* job);

// The same jobs done by this system and by the libraries that a person would otherwise use. "Load" and
// "parse" make a tree of a text, "write" a text of a tree, "patch" loads, changes one key and writes, and
// "both" parses and writes. "Framing" finds the messages in a stream.
Subject ZekaraIniLoad();
Subject ZekaraIniPatch();
Subject ZekaraPlistParse();
Subject ZekaraPlistWrite();
Subject ZekaraPlistBoth();
Subject ZekaraFramingInBlocks();
Subject ZekaraFramingInOneBlock();
Subject ZekaraParseOfEveryMessage();

Subject InihLoad();
Subject SimpleIniLoad();
Subject SimpleIniPatch();
Subject GKeyFileLoad();
Subject GKeyFilePatch();
Subject GKeyFileLoadList();
Subject GKeyFilePatchList();
Subject BoostLoad();
Subject LibplistParse();
Subject LibplistWrite();
Subject LibplistBoth();
Subject ExpatParse();
Subject PugixmlParse();

}  // namespace zekara::benchmarks
