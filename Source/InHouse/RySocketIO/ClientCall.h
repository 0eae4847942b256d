// Calls into code that a client wrote. Private to the library.
#pragma once

#include "RySocketIO/CUtility.h"

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

// The same where nothing depends on it: what was thrown is a line in the log.
template <class Call>
void CallOverride(const char* szClass, Call call)
{
    if (!Completes(call))
    {
        CUtility::Debug("%s - an override threw", szClass);
    }
}

} // namespace RySocketIO
