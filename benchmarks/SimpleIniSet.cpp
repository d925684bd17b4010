// Sets one key in a configuration file with SimpleIni. That is only the INI part of a request: no lock, log,
// message or signal.

#include <SimpleIni.h>

int main(int argc, char* argv[]) {
  if (argc != 5) return 1;
  CSimpleIniA ini(true, true, false);
  if (ini.LoadFile(argv[1]) != SI_OK) return 1;
  ini.SetValue(argv[2], argv[3], argv[4], nullptr, true);
  return ini.SaveFile(argv[1], false) == SI_OK ? 0 : 1;
}
