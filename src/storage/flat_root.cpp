// C-linkage forwards to aoStorage's root directory operations.
#include "aostore/flat.h"
#include "aostore/storage.h"

extern "C" {

aoStream* Korvash_OpenOrCreateStream(aoStorage* storage, const char* name, int attributes) {
  return storage != nullptr ? storage->OpenOrCreateStream(name, attributes) : nullptr;
}

aoStream* Korvash_OpenStream(aoStorage* storage, const char* name, uint32_t mode) {
  return storage != nullptr ? storage->OpenStream(name, mode) : nullptr;
}

aoStream* Korvash_OpenStreamFirst(aoStorage* storage, void** position, uint32_t mode) {
  return storage != nullptr ? storage->OpenStreamFirst(position, mode, 0) : nullptr;
}

aoStream* Korvash_OpenStreamNext(aoStorage* storage, void** position, uint32_t mode) {
  return storage != nullptr ? storage->OpenStreamNext(position, mode) : nullptr;
}

bool Korvash_RemoveStream(aoStorage* storage, const char* name) {
  return storage != nullptr && storage->RemoveStream(name);
}
}
