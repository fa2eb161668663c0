// Standard file streams on a regular file, opened by the rules of
// safe_fs.h: the file is opened through held folders first (no link
// followed at its name, a FIFO or folder refused, as the folder's owner
// when privileged), and the stream is then opened on that very file.
#ifndef ORU_PLATFORM_FILE_STREAM_H
#define ORU_PLATFORM_FILE_STREAM_H

#include <fstream>
#include <memory>
#include <string>

namespace platform {

using InputFileStream = std::ifstream;
using OutputFileStream = std::ofstream;

// A stream on the file at `path` (relative to the working folder when not
// absolute) with `mode`; never null, and not open when the file is missing
// or the rules refuse it. An output stream makes a missing file (mode 0666,
// less the umask).
std::unique_ptr<InputFileStream> OpenInputFileStream(const std::string& path,
                                                     std::ios::openmode mode);
std::unique_ptr<OutputFileStream> OpenOutputFileStream(const std::string& path,
                                                       std::ios::openmode mode);

} // namespace platform

#endif // ORU_PLATFORM_FILE_STREAM_H
