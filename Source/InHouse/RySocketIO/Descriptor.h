// Numbers of file descriptors. Private to the library.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace RySocketIO
{

// Moves a descriptor away from the numbers of the standard streams, which a program that has closed these would write to.
inline int AboveStandard(int nDescriptor)
{
    if (nDescriptor < 0 || nDescriptor > STDERR_FILENO)
    {
        return nDescriptor;
    }
    const int nAbove = fcntl(nDescriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(nDescriptor);
    return nAbove;
}

} // namespace RySocketIO
