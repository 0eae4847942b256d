#include "Images/Cells.h"

CCell ValueCell(const stAddress& address, const stValue& value)
{
    const std::string strText = ValueText(address, value);
    return address.enType == enString ? CCell::Text(strText, value.strValue.Text()) : CCell::Number(strText);
}
