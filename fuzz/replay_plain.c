/*
 * Runs a fuzz target over every file of the directories given, in plain C: for the memory sanitizer, which takes what a
 * C++ runtime that was built without it stores for uninitialized.
 */
#include <dirent.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

/* In memory of exactly its size. */
static int run(const char *directory, const char *name) {
  static uint8_t bytes[1 << 20];
  char path[4096];
  size_t size, i;
  uint8_t *copy;
  FILE *file;
  (void)snprintf(path, sizeof path, "%s/%s", directory, name);
  file = fopen(path, "rb");
  if (file == NULL) return 0;
  size = fread(bytes, 1, sizeof bytes, file);
  (void)fclose(file);
  copy = malloc(size == 0 ? 1 : size);
  if (copy == NULL) return 0;
  for (i = 0; i < size; ++i) copy[i] = bytes[i];
  (void)LLVMFuzzerTestOneInput(copy, size);
  free(copy);
  return 1;
}

int main(int argc, char **argv) {
  int count = 0, i;
  for (i = 1; i < argc; ++i) {
    const struct dirent *entry;
    DIR *const directory = opendir(argv[i]);
    if (directory == NULL) continue;
    while ((entry = readdir(directory)) != NULL) {
      if (entry->d_name[0] != '.') count += run(argv[i], entry->d_name);
    }
    (void)closedir(directory);
  }
  (void)printf("%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
