// Sets one key in a configuration file with GLib. That is only the INI part of a request: no lock, log,
// message or signal.

#include <glib.h>

#include <cstdio>

int main(int argc, char* argv[]) {
  if (argc != 5) return 1;
  GKeyFile* const file = g_key_file_new();
  if (!g_key_file_load_from_file(file, argv[1], G_KEY_FILE_NONE, nullptr)) return 1;
  g_key_file_set_string(file, argv[2], argv[3], argv[4]);
  gsize length = 0;
  gchar* const text = g_key_file_to_data(file, &length, nullptr);
  // g_file_set_contents() would write another file and rename it.
  FILE* const out = fopen(argv[1], "w");
  return out != nullptr && fwrite(text, 1, length, out) == length && fclose(out) == 0 ? 0 : 1;
}
