#include "Zekara4MacTool/IniFileTools.h"

#include <memory>
#include <utility>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/Process.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "Zekara4MacTool/ProcessState.h"

namespace zekara {
namespace {

// Finds out, while the file is whole, whether there is memory for its new text and whether the text may be
// written at this size; what the writer itself will raise is left for later. Returns an empty string with
// room for the text: the memory has been written to, so that the system has it.
std::string RehearseWriting(const ZKAIniData& ini) {
  std::string text;
  try {
    text.resize(ini.sizeAsIni());
  } catch (const NSException&) {
    // Deliberate: raised again after the truncation, which the writer's failures do not prevent.
  }
  if (text.size() > FileSizeLimit()) {
    throw NSException(NSFileHandleOperationException, "the new text is larger than files may be");
  }
  text.clear();
  return text;
}

}  // namespace

ZKAChangedSections PatchIniFile(const std::string& path, const Plist& patch) {
  Descriptor opened = OpenLockedFile(path.c_str(), 0444);
  if (!opened.isOpen()) throw NSException("PatchIniFile", "can't open ini file");
  const auto file = NSFileHandle::initWithFileDescriptor_closeOnDealloc(opened.get(), true);
  static_cast<void>(opened.release());
  Transaction::blockSignals();
  std::string bytes = file->readDataToEndOfFile();
  const std::shared_ptr<ZKAIniData> ini = ZKAIniParser::initWithData(std::move(bytes)).parse();
  ZKAChangedSections changed = ini->applyPatch(patch);
  std::string text = RehearseWriting(*ini);
  // Deliberate: the file is cut before its new text exists.
  file->truncateFileAtOffset(0);
  ini->appendIniTo(text);
  file->writeData(text);
  file->synchronizeFile();
  file->closeFile();
  return changed;
}

}  // namespace zekara
