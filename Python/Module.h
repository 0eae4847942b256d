// What the files of the Python module share.
#pragma once

#include "Images/Address.h"
#include "Network/Options.h"
#include "Terminal/Common.h"

#include <pybind11/pybind11.h>

#include <memory>
#include <string>

namespace py = pybind11;

typedef std::shared_ptr<CBMAContainer> tImage;

void AddAddresses(py::module_& module);
void AddImage(py::module_& module);
void AddFollower(py::module_& module);
void AddSimulatedMC(py::module_& module);

// These raise what is wrong with what Python gave: ValueError in consolectl's words, TypeError for what is of another kind.
stAddress ToAddress(const py::object& address); // "MicInput/12/Fader", or ("MicInput", 12, "Fader", 0)
stValue ToValue(const stAddress& address, const py::object& value);
tagenPPCMessageType ToType(const std::string& strName);
double Within(const char* szName, double dValue, double dLow, double dHigh);
stMulticastLink ToLink(const std::string& strGroup, long lPort, const std::string& strInterface);

py::object FromValue(const stAddress& address, const stValue& value);

// OSError, unless the text is empty.
void RaiseIfFailed(const std::string& strError);

// To be thrown: ValueError, as of a closed file.
py::value_error Closed(const char* szWhat);

// As a file is: open until it is closed, or until the end of with.
template <class Closing>
void AddClosing(py::class_<Closing, std::shared_ptr<Closing>>& type)
{
    type.def_property_readonly("closed", &Closing::IsClosed)
        .def("close", &Closing::Close)
        .def("__enter__", [](const py::object& self) { return self; })
        .def("__exit__", [](Closing& self, const py::args&) { self.Close(); });
}
