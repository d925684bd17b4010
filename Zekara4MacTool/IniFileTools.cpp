#include "Zekara4MacTool/IniFileTools.h"

#include <cstdint>
#include <memory>
#include <utility>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/Process.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"

// The change is one locked read-modify-write. Everything that can fail without the document being at fault,
// such as memory for the new text or a limit of the caller's, fails before the file is truncated. Between
// truncating and writing no other system call is made.

namespace zekara {
namespace {

// More CPU time than truncating and writing a file of gigabytes takes.
constexpr std::uint64_t kSecondsToWrite = 5;

// Makes the new text while the file is whole: if memory runs out, if the text is larger than a file may be,
// or if the system could kill the process before the text is written, the file stays as it was.
std::string NewText(const ZKAIniData& ini, NSFileHandle& file) {
  std::string text;
  try {
    text = ini.asIni();
  } catch (const NSException&) {
    // Deliberate: the file is truncated even if the document cannot be written.
    file.truncateFileAtOffset(0);
    throw;
  }
  if (text.size() > FileSizeLimit()) {
    throw NSException(NSFileHandleOperationException, "the new text is larger than files may be");
  }
  if (CpuTimeLeft() < kSecondsToWrite) {
    throw NSException(NSFileHandleOperationException, "too little CPU time is left to write the new text");
  }
  return text;
}

}  // namespace

ZKAChangedSections PatchIniFile(const std::string& path, const Plist& patch) {
  Transaction transaction;
  return PatchIniFile(path, patch, transaction);
}

ZKAChangedSections PatchIniFile(const std::string& path, const Plist& patch, Transaction& transaction) {
  Descriptor opened = OpenLockedFile(path.c_str(), 0444);
  if (!opened.isOpen()) throw NSException("PatchIniFile", "can't open ini file");
  const auto file = NSFileHandle::handleOwning(std::move(opened));
  transaction.blockSignals();
  std::string bytes = file->readDataToEndOfFile();
  const std::shared_ptr<ZKAIniData> ini = ZKAIniParser::initWithData(std::move(bytes)).parse();
  ZKAChangedSections changed = ini->applyPatch(patch);
  const std::string text = NewText(*ini, *file);
  file->truncateFileAtOffset(0);
  file->writeData(text);
  file->synchronizeFile();
  file->closeFile();
  return changed;
}

}  // namespace zekara
