// A pipe whose two ends are closed in any program this process starts.
#ifndef ORU_PLATFORM_PIPE_H
#define ORU_PLATFORM_PIPE_H

namespace platform {

// ends[0] reads, ends[1] writes. False, with errno, and nothing open when
// the pipe cannot be made. Where the system cannot make the pipe and mark
// it in one call, a program another thread starts in between inherits it.
bool MakeCloseOnExecPipe(int ends[2]);

} // namespace platform

#endif // ORU_PLATFORM_PIPE_H
