// The Python module: what a test rig needs of a console. Python's lock is given up while waiting and nowhere else, so that it
// guards whatever Python can reach; no thread of the library's ever takes it.
#include "Module.h"

#include <exception>
#include <system_error>
#include <utility>

namespace
{

void Translate(std::exception_ptr pException)
{
    try
    {
        std::rethrow_exception(std::move(pException));
    }
    catch (const stWrongUse& error)
    {
        PyErr_SetString(PyExc_ValueError, Printable(error.what()).c_str());
    }
    catch (const std::system_error& error)
    {
        PyErr_SetString(PyExc_OSError, Printable(error.what()).c_str());
    }
    catch (int) // of an image that there is no memory for
    {
        PyErr_NoMemory();
    }
}

} // namespace

void RaiseIfFailed(const std::string& strError)
{
    if (!strError.empty())
    {
        PyErr_SetString(PyExc_OSError, Printable(strError).c_str());
        throw py::error_already_set();
    }
}

py::value_error Closed(const char* szWhat)
{
    return py::value_error(Format("this %s is closed", szWhat));
}

PYBIND11_MODULE(logicalcontrols, module)
{
    module.doc() = "Test rigs for a digital audio mixing console: images, followers, and a simulated master controller (MC).";
    py::register_exception_translator(Translate);
    AddAddresses(module);
    AddImage(module);
    AddFollower(module);
    AddSimulatedMC(module);
}
