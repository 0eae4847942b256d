// Calls into code that a client wrote. Private to the library.
#pragma once

#include <cxxabi.h>

namespace RySocketIO
{

// False when the call threw. What ends the thread itself, pthread_exit or a cancellation, goes on.
template <class Call>
bool Completes(Call call)
{
    try
    {
        call();
        return true;
    }
    catch (const abi::__forced_unwind&)
    {
        throw;
    }
    catch (...)
    {
        return false;
    }
}

} // namespace RySocketIO
