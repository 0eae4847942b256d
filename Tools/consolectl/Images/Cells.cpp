#include "Images/Cells.h"

#include <cstring>

CCell ValueCell(const stAddress& address, const stValue& value)
{
    const std::string strText = ValueText(address, value);
    return address.enType == enString ? CCell::Text(strText, value.strValue.Text()) : CCell::Number(strText);
}

CCell BytesCell(const stAddress& address, const stValue& value)
{
    std::string strText = "0x";
    if (address.enType == enString)
    {
        for (std::size_t unByte = 0; unByte < sizeof value.strValue; ++unByte)
        {
            strText += Format("%02x", reinterpret_cast<const unsigned char*>(&value.strValue)[unByte]);
        }
        return strText;
    }
    std::uint32_t unBits = static_cast<std::uint32_t>(value.nValue);
    if (IsFloat(address.enType))
    {
        std::memcpy(&unBits, &value.fValue, sizeof unBits);
    }
    return strText + Format("%08x", unBits);
}
