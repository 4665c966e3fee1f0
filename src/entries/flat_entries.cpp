// Flat exports of the typed entries and of the buffer release.
#include "aostore/flat.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "platform/memory.h"

extern "C" {

int Korvash_GetDWordEntry(aoStorage* storage, const char* name, int def) {
  return storage != nullptr ? storage->GetEntry(name, def) : def;
}

int Korvash_SetDWordEntry(aoStorage* storage, const char* name, int value) {
  return storage != nullptr ? storage->SetEntry(name, value) : 0;
}

int Korvash_GetEntryErasedOld(aoStorage* storage, const char* name, void** data, unsigned int* size) {
  return storage != nullptr ? storage->GetEntryErasedOld(name, data, size) : 0;
}

int Korvash_SetEntryEraseOld(aoStorage* storage, const char* name, void* data, uint32_t size) {
  return storage != nullptr ? storage->SetEntryEraseOld(name, data, size, 1) : 0;
}

int CompStream_GetEntryErasedOld(aoStream* stream, const char* name, void** data, unsigned int* size) {
  return stream != nullptr ? stream->GetEntryErasedOld(name, data, size) : 0;
}

int CompStream_SetEntryEraseOld(aoStream* stream, const char* name, void* data, uint32_t size) {
  return stream != nullptr ? stream->SetEntryEraseOld(name, data, size, 1) : 0;
}

void aoFreeBuffer(void* buffer) { ao::platform::FreeBlock(buffer); }

}  // extern "C"
