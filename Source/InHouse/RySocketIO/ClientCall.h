// Calls into code that a client wrote. Private to the library.
#pragma once

#include <exception>

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
    catch (...)
    {
        if (std::current_exception() == nullptr)
        {
            throw; // no exception of C++: the thread's end
        }
        return false;
    }
}

} // namespace RySocketIO
