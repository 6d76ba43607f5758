#pragma once
// Unpacking of a downloaded gzip file next to itself. Runs on the
// installation worker thread.
#include <cstdio>
#include <functional>

#include "update/DlModule.h"

class CSaveParamDownload;

// Bytes read from the gzip stream per round.
constexpr int kUnpackBufferSize = 16384;

// Copies the whole decompressed stream of the open gzip handle gz (a zlib
// gzFile) to out. Returns 0 at the end of the stream, -1 when a read
// failed: a corrupt stream, or a file that ends before its stream does. Write errors on out are not detected: a
// full disk shows as a short output file.
int decompressModule(void* gz, FILE* out);

// Told the record after a successful unpack, with the state the record has
// reached (dlStateFetched); the dialog records it in the download state file.
using UnpackedRecorder = std::function<void(const dlModule& module, int state)>;

// Unpacks the file named by module.localPath when its suffix is "gz" in any
// case: "name.gz" becomes "name" beside it, the compressed file is deleted,
// localPath names the unpacked file and recordState is told. Returns true only
// then. A missing file, another suffix or an open failure change nothing; a
// read failure leaves the compressed file and the partial output on disk and
// the record unchanged. Nothing is reported to the user or the log.
bool unzipDownloadedModule(dlModule& module, const UnpackedRecorder& recordState);

// After unzipDownloadedModule has failed: true when the record still names a
// gzip file (a truncated or corrupt download), which must never reach the
// updater. That file and any partial unpacked copy beside it are deleted, so
// that the next run fetches the file again. False for a record that names
// no gzip file.
bool discardPackedLeftover(const dlModule& module);

// The dialog's form: the unpacked record is recorded with state 2 in the
// download state file through saveParam.
bool unzipDownloadedModule(dlModule& module, CSaveParamDownload& saveParam);
