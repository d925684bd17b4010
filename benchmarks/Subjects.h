#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace zekara::benchmarks {

// One library doing one job on an input: prepare() is not measured, what it returns is.
struct Subject {
  using Work = std::function<void()>;

  std::string name;
  std::function<Work(const std::string& input)> prepare;
};

// Subjects that do the same job on the same input and are compared.
struct Row {
  std::string job;
  std::string size;
  std::function<std::string()> input;
  std::vector<Subject> subjects;
  bool isGrowth = false;  // of interest is only how the time grows with the size
};

// Stops the program with a message: a library that did not do its job is not measured.
void Expect(bool isDone, const char* job);

// The same jobs done by this system and by the libraries that a person would otherwise use.
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
