// Reads a HAR into a Recording and tolerates incomplete ones. Nothing is shared between calls. Any thread.
#ifndef REPLAY_RECORDING_HAR_READER_H_
#define REPLAY_RECORDING_HAR_READER_H_

#include <string>

#include "replay/recording/recording.h"

namespace replay {

// `json` is the whole text of the file; it is not copied if it is moved in and has spare capacity. `name` is
// used in errors and as Recording::name. Rows that cannot be replayed are counted in Recording::skipped; if
// none can, there are no pages. Throws std::runtime_error with one line that names the file and the place if
// it is not a HAR file, that is, not one complete JSON document in UTF-8 with log.entries.
Recording ReadHar(std::string json, const std::string& name);

// Reads a file, and decompresses gzip and zstd data. The name of the file without folders becomes the name of
// the recording; "-" is standard input. Throws as above, and if the file cannot be read; the error contains
// the whole path.
Recording ReadHarFile(const std::string& path);

}  // namespace replay

#endif  // REPLAY_RECORDING_HAR_READER_H_
