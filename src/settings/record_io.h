// Reading and writing one framed record in a child stream of the global
// settings file.
#ifndef AOSTORE_SETTINGS_RECORD_IO_H
#define AOSTORE_SETTINGS_RECORD_IO_H

#include <cstdint>

#include "aostore/vastrel_file.h"
#include "settings/settings_record.h"

namespace ao::settings {

// Reads the outer header from the current child of file; false when it does
// not come whole.
bool ReadOuterHeader(CVastrelFile& file, OuterHeader* outer);
// Reads the rest of the current child into its buffer and deciphers it with
// a fresh duplicate of key. False when the child is too large to be a record
// or the rest cannot be read or deciphered.
bool DecryptRecordRest(CVastrelFile& file, uint64_t key);

// The record reader: reads the inner header and size bytes of data into
// buffer by the version rules of kind. False when the record is not of that
// kind or its data does not fit the caller's size.
bool ReadRecord(CVastrelFile& file, const OuterHeader& outer, const RecordDescriptor& kind, unsigned char* buffer,
                uint64_t size);

// The record writer: frames kind.dataSize bytes of data and writes them over
// child childName of streamPath ("stream" or "stream/child", created when
// missing) of file, which is open for writing. The record is enciphered with
// a fresh duplicate of key; if that fails it is written in clear. 1 when the
// whole record was written.
int WriteRecord(CVastrelFile& file, uint64_t key, const RecordDescriptor& kind, const unsigned char* data,
                const char* streamPath, const char* childName);

}  // namespace ao::settings

#endif  // AOSTORE_SETTINGS_RECORD_IO_H
