// An image of all parameters, and its blocks as buffers.
#include "Module.h"

#include "Images/Difference.h"
#include "Images/ImageFile.h"

#include <pybind11/stl/filesystem.h>

namespace
{

// Keeps the image as long as anybody has the buffer.
struct stBlock
{
    tImage pImage;
    tagenPPCMessageType enType;
};

struct stElement
{
    py::ssize_t nBytes; // of the buffer's items, and of a parameter; switches are bits
    const char* szFormat;
    py::ssize_t nParameter;
};

constexpr stElement caElements[c_nMessageTypes] = {
    {1, "B", RyGConsoleString::enSize}, {4, "f", 4}, {1, "B", 1}, {4, "i", 4}, {4, "f", 4}, {4, "i", 4}, {1, "B", 1}};

py::buffer_info BufferOf(const stBlock& block)
{
    void* pMemory = nullptr;
    long lBytes = 0;
    block.pImage->GetMessageMemory(block.enType, pMemory, lBytes);
    const stElement& element = caElements[block.enType];
    const py::ssize_t nParameters = lBytes / element.nParameter;
    if (block.enType == enString)
    {
        return py::buffer_info(pMemory, element.nBytes, element.szFormat, 2, {nParameters, element.nParameter},
                               {element.nParameter, element.nBytes});
    }
    return py::buffer_info(pMemory, element.nBytes, element.szFormat, nParameters);
}

struct stScope
{
    const char* szName;
    void (CBMAContainer::*pSet)(tagenPPCMessageType, tagenVirtualPathType, int, int, int);
    void (CBMAContainer::*pGet)(tagenPPCMessageType, tagenVirtualPathType, int, int, int&) const;
};

constexpr stScope caScopes[] = {{"store", &CBMAContainer::SetPPCStoreScope, &CBMAContainer::GetPPCStoreScope},
                                {"recall", &CBMAContainer::SetPPCRecallScope, &CBMAContainer::GetPPCRecallScope},
                                {"global", &CBMAContainer::SetPPCGlobalScope, &CBMAContainer::GetPPCGlobalScope},
                                {"safe", &CBMAContainer::SetPPCSafeScope, &CBMAContainer::GetPPCSafeScope}};

const stScope& FindScope(const std::string& strName)
{
    for (const stScope& scope : caScopes)
    {
        if (strName == scope.szName)
        {
            return scope;
        }
    }
    throw stWrongUse("scope", "\"" + strName + "\" is none of store, recall, global and safe");
}

py::object Get(const CBMAContainer& image, const py::object& where)
{
    const stAddress address = ToAddress(where);
    return FromValue(address, ReadValue(image, address));
}

void Set(CBMAContainer& image, const py::object& where, const py::object& value)
{
    const stAddress address = ToAddress(where);
    WriteValue(image, {address, ToValue(address, value)}, false);
}

bool GetScope(const CBMAContainer& image, const py::object& where, const std::string& strScope)
{
    const stAddress address = ToAddress(where);
    int nFlag = 0;
    (image.*FindScope(strScope).pGet)(address.enType, address.enPathType, address.nPath, address.nParam, nFlag);
    return nFlag != 0;
}

void SetScope(CBMAContainer& image, const py::object& where, const std::string& strScope, bool bOn)
{
    const stAddress address = ToAddress(where);
    (image.*FindScope(strScope).pSet)(address.enType, address.enPathType, address.nPath, address.nParam, bOn ? 1 : 0);
}

py::dict CheckWords(CBMAContainer& image)
{
    std::uint32_t aunCheckWords[c_nMessageTypes];
    ReadCheckWords(image, aunCheckWords);
    py::dict words;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        words[caMessageTypeNames[nType]] = aunCheckWords[nType];
    }
    return words;
}

py::list Differences(const CBMAContainer& image, const CBMAContainer& other)
{
    py::list addresses;
    for (const stAddress& address : FindDifferences(image, other))
    {
        addresses.append(py::str(AddressText(address)));
    }
    return addresses;
}

tImage Copy(const CBMAContainer& image)
{
    return std::make_shared<CBMAContainer>(image);
}

tImage Load(const std::filesystem::path& file)
{
    tImage pImage = std::make_shared<CBMAContainer>();
    RaiseIfFailed(LoadImage(file.string(), *pImage));
    return pImage;
}

} // namespace

void AddImage(py::module_& module)
{
    py::class_<stBlock>(py::handle(), "Block", py::buffer_protocol()).def_buffer(&BufferOf);
    py::class_<CBMAContainer, tImage>(module, "Image", "Every parameter of a console. Fresh, all are zero.")
        .def(py::init<>())
        .def_static("load", &Load, py::arg("file"), "The image in a file that save or consolectl wrote.")
        .def(
            "save",
            [](const CBMAContainer& image, const std::filesystem::path& file) { RaiseIfFailed(SaveImage(image, file.string())); },
            py::arg("file"))
        .def("get", &Get, py::arg("address"))
        .def("set", &Set, py::arg("address"), py::arg("value"), "Clears the parameter's global flag.")
        .def("get_scope", &GetScope, py::arg("address"), py::arg("scope"))
        .def("set_scope", &SetScope, py::arg("address"), py::arg("scope"), py::arg("on").noconvert())
        .def(
            "block",
            [](const tImage& pImage, const std::string& strType) {
                return py::memoryview(py::cast(stBlock{pImage, ToType(strType)}));
            },
            py::arg("type"), "The image's own memory of a message type: what is written there is in the image.")
        .def("apply_defaults", &ApplyDefaults)
        .def("check_words", &CheckWords)
        .def("differences", &Differences, py::arg("other"), "The addresses of which the two have other values.")
        .def("copy", &Copy)
        .def("__copy__", &Copy)
        .def(
            "__deepcopy__", [](const CBMAContainer& image, const py::dict&) { return Copy(image); }, py::arg("memo"));
}
