// Reads a HAR into a Recording, whatever state it is in. Nothing is shared between calls. Any thread.
#ifndef REPLAY_RECORDING_HAR_READER_H_
#define REPLAY_RECORDING_HAR_READER_H_

#include <string>

#include "replay/recording/recording.h"

namespace replay {

// `json` is the whole text of the file; handed over with capacity to spare it is not copied. `name` is what
// errors and Recording::name call it. Rows that cannot be replayed are counted in Recording::skipped; when
// none can, there are no pages. Throws std::runtime_error with one line that names the file and the place
// when it is not a HAR file: not one whole JSON document in UTF-8 with a log.entries.
Recording ReadHar(std::string json, const std::string& name);

// Reads a file, decompressed when it is gzip or zstd data. The file's own name, without folders, becomes the
// recording's; "-" is standard input. Throws as above, and when the file cannot be read; the error names the
// whole path.
Recording ReadHarFile(const std::string& path);

}  // namespace replay

#endif  // REPLAY_RECORDING_HAR_READER_H_
