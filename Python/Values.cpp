// Addresses and values, between Python and the library.
#include "Module.h"

#include "Network/Interface.h"

#include <cfloat>

namespace
{

constexpr long c_lHighestMeter = 255;

// Whatever bytes a console string has, in Python and back.
std::string Utf8(const py::handle& text)
{
    const auto bytes = py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!bytes)
    {
        throw py::error_already_set();
    }
    return bytes;
}

// Coordinates are joined to the text that they would be.
std::string ToText(const py::object& address)
{
    if (py::isinstance<py::str>(address))
    {
        return Utf8(address);
    }
    if (!py::isinstance<py::tuple>(address))
    {
        throw py::type_error(Format("an address is a text such as \"MicInput/12/Fader\", or a tuple of its coordinates, not %s",
                                    Py_TYPE(address.ptr())->tp_name));
    }
    std::vector<std::string> parts;
    for (const py::handle& part : py::reinterpret_borrow<py::tuple>(address))
    {
        parts.push_back(Utf8(py::str(part)));
    }
    return Joined(parts, "/");
}

// A number as Python's own, or what Python says of it.
py::object Checked(PyObject* pNumber)
{
    if (pNumber == nullptr)
    {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(pNumber);
}

bool TakesText(const stAddress& address)
{
    return address.enType == enString;
}

void CheckKind(const stAddress& address, const py::object& value)
{
    PyObject* const pValue = value.ptr();
    const bool bFits = TakesText(address)        ? PyUnicode_Check(pValue)
                       : IsFloat(address.enType) ? PyNumber_Check(pValue)
                                                 : PyIndex_Check(pValue);
    if (!bFits)
    {
        throw py::type_error(Format("%s takes %s, not %s", AddressText(address).c_str(),
                                    TakesText(address)        ? "a text"
                                    : IsFloat(address.enType) ? "a number"
                                                              : "a whole number",
                                    Py_TYPE(pValue)->tp_name));
    }
}

stValue ToMeter(const py::object& number)
{
    int nOverflow = 0;
    const long lValue = PyLong_AsLongAndOverflow(number.ptr(), &nOverflow);
    if (nOverflow != 0 || lValue < 0 || lValue > c_lHighestMeter)
    {
        throw py::value_error(Format("value: \"%s\" is no value of type Meter: it takes a whole number from 0 to %ld",
                                     Utf8(py::str(number)).c_str(), c_lHighestMeter));
    }
    stValue value;
    value.nValue = static_cast<int>(lValue);
    return value;
}

py::list Expand(const py::object& pattern)
{
    py::list addresses;
    ForEachParameter(ParsePattern(ToText(pattern)),
                     [&](const stAddress& address) { addresses.append(py::str(AddressText(address))); });
    return addresses;
}

std::string TextAt(const std::string& strType, long lNumber)
{
    const tagenPPCMessageType enType = ToType(strType);
    Within("number", static_cast<double>(lNumber), 0, canParameterCounts[enType] - 1);
    return AddressText(AddressAt(enType, static_cast<int>(lNumber)));
}

} // namespace

stAddress ToAddress(const py::object& address)
{
    return ParseAddress(ToText(address));
}

stValue ToValue(const stAddress& address, const py::object& object)
{
    CheckKind(address, object);
    if (TakesText(address))
    {
        const std::string strText = Utf8(object);
        return strText.find('\0') == std::string::npos ? ParseValue(address.enType, strText)
                                                       : throw py::value_error("a console string holds no zero");
    }
    const py::object number = Checked(IsFloat(address.enType) ? PyNumber_Float(object.ptr()) : PyNumber_Long(object.ptr()));
    if (address.enType == enMeter)
    {
        return ToMeter(number);
    }
    const double dValue = IsFloat(address.enType) ? PyFloat_AS_DOUBLE(number.ptr()) : 0;
    if (!IsFloat(address.enType) || !(std::abs(dValue) <= double(FLT_MAX)))
    {
        return ParseValue(address.enType, Utf8(py::str(number)));
    }
    stValue value;
    value.fValue = static_cast<float>(dValue);
    return value;
}

tagenPPCMessageType ToType(const std::string& strName)
{
    const stRange types = ParsePattern("*/*/" + strName + "/*").types;
    if (types.nFirst != types.nLast)
    {
        throw stWrongUse("address", "\"" + strName + "\" names more than one message type");
    }
    return static_cast<tagenPPCMessageType>(types.nFirst);
}

double Within(const char* szName, double dValue, double dLow, double dHigh)
{
    if (!(dValue >= dLow && dValue <= dHigh))
    {
        throw py::value_error(Format("%s: %.15g is not within %.15g and %.15g", szName, dValue, dLow, dHigh));
    }
    return dValue;
}

stMulticastLink ToLink(const std::string& strGroup, long lPort, const std::string& strInterface)
{
    const std::string strError = CheckGroup(strGroup);
    if (!strError.empty())
    {
        throw stWrongUse("group", strError);
    }
    const unsigned int unPort = static_cast<unsigned int>(Within("port", static_cast<double>(lPort), 1, 65535));
    return {strGroup, unPort, strInterface.empty() ? std::string() : FindInterface(strInterface)};
}

py::object FromValue(const stAddress& address, const stValue& value)
{
    if (TakesText(address))
    {
        const std::string strText = value.strValue.Text();
        return Checked(PyUnicode_DecodeUTF8(strText.data(), static_cast<Py_ssize_t>(strText.size()), "surrogateescape"));
    }
    return IsFloat(address.enType) ? py::object(py::float_(value.fValue)) : py::object(py::int_(value.nValue));
}

void AddAddresses(py::module_& module)
{
    py::tuple types(c_nMessageTypes);
    for (std::size_t unType = 0; unType < types.size(); ++unType)
    {
        types[unType] = caMessageTypeNames[unType];
    }
    module.attr("MESSAGE_TYPES") = types;
    module.def("addresses", &Expand, py::arg("pattern"), "Every address that a pattern such as \"MicInput/*/Fader\" names.");
    module.def("address_at", &TextAt, py::arg("type"), py::arg("number"), "The address of a parameter by its place in the block.");
    module.def(
        "number_of", [](const py::object& address) { return NumberOf(ToAddress(address)); }, py::arg("address"),
        "The place of a parameter in the block of its type.");
}
