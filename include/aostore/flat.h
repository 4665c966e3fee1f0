// Flat exports with C linkage: the object first, forwarding to its members.
#ifndef AOSTORE_FLAT_H
#define AOSTORE_FLAT_H

#include <cstdint>

#include "aostore/export.h"

class aoStorage;
class aoStream;

extern "C" {
AOSTORE_API aoStream* Korvash_OpenOrCreateStream(aoStorage* storage, const char* name, int attributes);
AOSTORE_API aoStream* Korvash_OpenStream(aoStorage* storage, const char* name, uint32_t mode);
AOSTORE_API aoStream* Korvash_OpenStreamFirst(aoStorage* storage, void** position, uint32_t mode);
AOSTORE_API aoStream* Korvash_OpenStreamNext(aoStorage* storage, void** position, uint32_t mode);
AOSTORE_API bool Korvash_RemoveStream(aoStorage* storage, const char* name);
AOSTORE_API int Korvash_GetDWordEntry(aoStorage* storage, const char* name, int def);
AOSTORE_API int Korvash_SetDWordEntry(aoStorage* storage, const char* name, int value);
AOSTORE_API int Korvash_GetEntryErasedOld(aoStorage* storage, const char* name, void** data, unsigned int* size);
AOSTORE_API int Korvash_SetEntryEraseOld(aoStorage* storage, const char* name, void* data, uint32_t size);

AOSTORE_API aoStream* CompStream_OpenOrCreateStream(aoStream* stream, const char* name, int attributes);
AOSTORE_API aoStream* CompStream_OpenStream(aoStream* stream, const char* name, uint32_t mode);
AOSTORE_API aoStream* CompStream_OpenStreamFirst(aoStream* stream, int64_t* position, uint32_t mode);
AOSTORE_API aoStream* CompStream_OpenStreamNext(aoStream* stream, int64_t* position, uint32_t mode);
AOSTORE_API int CompStream_Release(aoStream* stream);
AOSTORE_API bool CompStream_Remove(aoStream* stream);
AOSTORE_API const char* CompStream_GetName(aoStream* stream);
AOSTORE_API int CompStream_GetEntryErasedOld(aoStream* stream, const char* name, void** data, unsigned int* size);
AOSTORE_API int CompStream_SetEntryEraseOld(aoStream* stream, const char* name, void* data, uint32_t size);

// Frees a buffer handed out by the library (ReadAll, CopyStreamToBuffer,
// GetEntryErasedOld, aoStream2::Detach).
AOSTORE_API void aoFreeBuffer(void* buffer);
}

#endif  // AOSTORE_FLAT_H
