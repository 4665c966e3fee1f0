// C-linkage forwards to aoStream's folder operations.
#include "aostore/flat.h"
#include "aostore/stream.h"

extern "C" {

aoStream* CompStream_OpenOrCreateStream(aoStream* stream, const char* name, int attributes) {
  return stream != nullptr ? stream->OpenOrCreateStream(name, attributes) : nullptr;
}

aoStream* CompStream_OpenStream(aoStream* stream, const char* name, uint32_t mode) {
  return stream != nullptr ? stream->OpenStream(name, mode) : nullptr;
}

aoStream* CompStream_OpenStreamFirst(aoStream* stream, int64_t* position, uint32_t mode) {
  return stream != nullptr ? stream->OpenStreamFirst(position, mode) : nullptr;
}

aoStream* CompStream_OpenStreamNext(aoStream* stream, int64_t* position, uint32_t mode) {
  return stream != nullptr ? stream->OpenStreamNext(position, mode) : nullptr;
}

int CompStream_Release(aoStream* stream) { return stream != nullptr ? stream->Release() : -1; }

bool CompStream_Remove(aoStream* stream) { return stream != nullptr && stream->Remove(); }

const char* CompStream_GetName(aoStream* stream) { return stream != nullptr ? stream->GetName() : nullptr; }
}
