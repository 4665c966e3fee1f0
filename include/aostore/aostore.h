// aostore: structured storage in one host file. Include this header for the
// whole public interface.
#ifndef AOSTORE_AOSTORE_H
#define AOSTORE_AOSTORE_H

#include "aostore/export.h"
#include "aostore/types.h"
#include "aostore/error.h"
#include "aostore/map_sort.h"
#include "aostore/storage.h"
#include "aostore/stream.h"
#include "aostore/recorder.h"
#include "aostore/flat.h"
#include "aostore/qo_string.h"
#include "aostore/vastrel_file.h"
#include "aostore/encrypted_element.h"
#include "aostore/file_adapter.h"
#include "aostore/stress.h"
#include "aostore/settings.h"
#include "aostore/check.h"
#include "aostore/maintenance.h"

#endif  // AOSTORE_AOSTORE_H
