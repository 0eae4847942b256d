// Operations on images, masks and block cursors, one after another, with any numbers: here those on single parameters.
#include "ImageBench.h"

namespace Fuzz
{

namespace
{

template <typename T, tagenPPCMessageType N>
bool RangeCheck(CBMAContainer& image, const stPlace& place)
{
    const auto* pArray = static_cast<const CParameterArray<T, N, false>*>(image.GetCParamArray(N));
    return pArray->RangeCheck(GroupOf(place), place.nPath, place.nParam);
}

} // namespace

// What a write that is not refused leaves behind.
void CImageBench::Store(const stPlace& place, std::uint32_t unValue, const RyGConsoleString& strValue, bool bLite)
{
    const std::int64_t nFlat = Flat(place);
    SetBit(m_Model.Flags(c_nGlobalScope, place.nType), nFlat, false);
    if (place.nType == 2)
    {
        SetBit(m_Model.values[2], nFlat, unValue != 0);
    }
    else if (!bLite && place.nType == 0)
    {
        std::memcpy(m_Model.Value(0, nFlat), strValue.Data(), 13);
    }
    else if (!bLite && place.nType == 6)
    {
        *m_Model.Value(6, nFlat) = static_cast<unsigned char>(unValue);
    }
    else if (!bLite)
    {
        std::memcpy(m_Model.Value(place.nType, nFlat), &unValue, 4);
    }
}

void CImageBench::Set(CInput& input)
{
    const stPlace place = TakePlace(input);
    const unsigned int unShape = input.Byte();
    const bool bLite = (unShape & 1) != 0;
    const bool bSendOnly = (unShape & 6) == 6;
    const std::uint32_t unValue = unShape & 8 ? input.Big32() : input.Byte();
    const tBytes text = Pattern(13, unValue);
    RyGConsoleString strValue(std::string(text.begin(), text.end()));
    const unsigned int unKind = unShape >= 224                         ? unShape % 4
                                : place.nType == 0                     ? 0
                                : place.nType == 1 || place.nType == 4 ? 1
                                : place.nType == 6                     ? 3
                                                                       : 2;
    static const unsigned int caTaken[] = {1u << 0, 1u << 1 | 1u << 4, 1u << 2 | 1u << 3 | 1u << 5, 1u << 6};
    switch (unKind)
    {
    case 0:
        m_pImage->SetPPC(TypeOf(place), GroupOf(place), place.nPath, place.nParam, strValue, bLite, bSendOnly);
        break;
    case 1:
        m_pImage->SetPPC(TypeOf(place), GroupOf(place), place.nPath, place.nParam, ToFloat(unValue), bLite, bSendOnly);
        break;
    case 2:
        m_pImage->SetPPC(TypeOf(place), GroupOf(place), place.nPath, place.nParam, static_cast<int>(unValue), bLite, bSendOnly);
        break;
    default:
        m_pImage->SetPPC(TypeOf(place), GroupOf(place), place.nPath, place.nParam, static_cast<unsigned char>(unValue), bLite,
                         bSendOnly);
        break;
    }
    const bool bTaken = IsType(place.nType) && (caTaken[unKind] >> place.nType & 1) != 0 && (!bSendOnly || unKind == 3);
    if (bTaken && Readable(place))
    {
        Store(place, unValue, strValue, bLite);
    }
}

void CImageBench::Get(CInput& input)
{
    const stPlace place = TakePlace(input);
    const bool bThere = Readable(place);
    const std::int64_t nFlat = Flat(place);
    int nValue = 0x1badcafe;
    float fValue = 1234.5f;
    unsigned char ucValue = 0x77;
    RyGConsoleString strValue("untouched");
    const CBMAContainer& image = *m_pImage;
    image.GetPPC(TypeOf(place), GroupOf(place), place.nPath, place.nParam, nValue);
    image.GetPPC(TypeOf(place), GroupOf(place), place.nPath, place.nParam, fValue);
    image.GetPPC(TypeOf(place), GroupOf(place), place.nPath, place.nParam, ucValue);
    image.GetPPC(TypeOf(place), GroupOf(place), place.nPath, place.nParam, strValue);
    int nExpected = 0x1badcafe;
    float fExpected = 1234.5f;
    unsigned char ucExpected = 0x77;
    char acExpected[13] = "untouched";
    if (bThere && place.nType == 0)
    {
        std::memcpy(acExpected, m_Model.Value(0, nFlat), 13);
    }
    else if (bThere && (place.nType == 1 || place.nType == 4))
    {
        std::memcpy(&fExpected, m_Model.Value(place.nType, nFlat), 4);
    }
    else if (bThere && place.nType == 6)
    {
        ucExpected = *m_Model.Value(6, nFlat);
    }
    else if (bThere && place.nType == 2)
    {
        nExpected = GetBit(m_Model.values[2], nFlat) ? 1 : 0;
    }
    else if (bThere)
    {
        std::memcpy(&nExpected, m_Model.Value(place.nType, nFlat), 4);
    }
    Check(nValue == nExpected && ToBits(fValue) == ToBits(fExpected) && ucValue == ucExpected &&
              std::memcmp(strValue.Data(), acExpected, 13) == 0,
          "reading %d/%d/%d/%d gave another value", place.nGroup, place.nPath, place.nType, place.nParam);
}

void CImageBench::SI(CInput& input)
{
    stPlace place = TakePlace(input);
    const unsigned int unShape = input.Byte();
    const std::uint32_t unValue = input.Byte() * 0x01010101u;
    place.nType = unShape & 1 ? 1 : 4; // another type aborts
    m_pImage->SetPPCSI(TypeOf(place), GroupOf(place), place.nPath, place.nParam, ToFloat(unValue), (unShape & 2) != 0);
    if (Readable(place) && (unShape & 2) == 0)
    {
        std::memcpy(m_Model.SI(place.nType, Flat(place)), &unValue, 4);
    }
    m_SIs.push_back(place);
}

// Whatever was written beside it, an SI float that a run was about is what the model says; so are its neighbours.
void CImageBench::CheckSIs()
{
    for (const stPlace& written : m_SIs)
    {
        for (int nBeside = -1; nBeside <= 1; ++nBeside)
        {
            stPlace place = written;
            place.nParam = static_cast<int>(std::int64_t(place.nParam) + nBeside > INT32_MAX   ? 0
                                            : std::int64_t(place.nParam) + nBeside < INT32_MIN ? 0
                                                                                               : place.nParam + nBeside);
            float fValue = 1234.5f;
            float fExpected = fValue;
            m_pImage->GetPPCSI(TypeOf(place), GroupOf(place), place.nPath, place.nParam, fValue);
            if ((place.nType == 1 || place.nType == 4) && Readable(place))
            {
                std::memcpy(&fExpected, m_Model.SI(place.nType, Flat(place)), 4);
            }
            Check(ToBits(fValue) == ToBits(fExpected), "the SI float of %d/%d/%d/%d is another", place.nGroup, place.nPath,
                  place.nType, place.nParam);
        }
    }
    m_SIs.clear();
}

void CImageBench::Flag(CInput& input)
{
    const stPlace place = TakePlace(input);
    const unsigned int unShape = input.Byte();
    const int nScope = static_cast<int>(unShape % 4);
    const int nValue = unShape & 4 ? input.Number() : static_cast<int>(unShape >> 3 & 1);
    static void (CBMAContainer::*const caSet[])(tagenPPCMessageType, tagenVirtualPathType, int, int,
                                                int) = {&CBMAContainer::SetPPCStoreScope, &CBMAContainer::SetPPCRecallScope,
                                                        &CBMAContainer::SetPPCGlobalScope, &CBMAContainer::SetPPCSafeScope};
    static void (CBMAContainer::*const caGet[])(tagenPPCMessageType, tagenVirtualPathType, int, int, int&)
        const = {&CBMAContainer::GetPPCStoreScope, &CBMAContainer::GetPPCRecallScope, &CBMAContainer::GetPPCGlobalScope,
                 &CBMAContainer::GetPPCSafeScope};
    const std::int64_t nFlat = Flat(place);
    if ((unShape & 0x40) == 0)
    {
        (*m_pImage.*caSet[nScope])(TypeOf(place), GroupOf(place), place.nPath, place.nParam, nValue);
        if (nFlat >= 0)
        {
            SetBit(m_Model.Flags(nScope, place.nType), nFlat, nValue != 0);
        }
    }
    int nFlag = 77;
    (*m_pImage.*caGet[nScope])(TypeOf(place), GroupOf(place), place.nPath, place.nParam, nFlag);
    const int nExpected = nFlat < 0 ? 77 : GetBit(m_Model.Flags(nScope, place.nType), nFlat) ? 1 : 0;
    Check(nFlag == nExpected, "the flag of %d/%d/%d/%d is %d", place.nGroup, place.nPath, place.nType, place.nParam, nFlag);
}

void CImageBench::CheckRange(CInput& input)
{
    const stPlace place = TakePlace(input);
    if (!IsType(place.nType) || place.nType == 2)
    {
        Check(place.nType == 2 || m_pImage->GetCParamArray(TypeOf(place)) == nullptr, "there is an array of type %d", place.nType);
        return;
    }
    const bool bPassed = place.nType == 0   ? RangeCheck<RyGConsoleString, enString>(*m_pImage, place)
                         : place.nType == 1 ? RangeCheck<float, enRotary>(*m_pImage, place)
                         : place.nType == 3 ? RangeCheck<int, enInteger>(*m_pImage, place)
                         : place.nType == 4 ? RangeCheck<float, enFader>(*m_pImage, place)
                         : place.nType == 5 ? RangeCheck<int, enOther>(*m_pImage, place)
                                            : RangeCheck<unsigned char, enMeter>(*m_pImage, place);
    Check(bPassed == PassesRangeCheck(place), "the range check of %d/%d/%d/%d answered %d", place.nGroup, place.nPath, place.nType,
          place.nParam, int(bPassed));
}

void CImageBench::Common(CInput& input)
{
    const int nGroup = input.Number();
    const int nPath = input.Number();
    const int nRole = input.Number();
    int nExpected = 0;
    if (nRole >= 0 && nRole <= 40 && IsGroup(nGroup) && canCommonParamTypesTable[nRole][nGroup] != -1)
    {
        const stPlace place = {caCommonParamTypeToMessageType[nRole], nGroup, nPath, canCommonParamTypesTable[nRole][nGroup]};
        if (place.nType == 2 && Readable(place))
        {
            nExpected = GetBit(m_Model.values[2], Flat(place)) ? 1 : 0;
        }
        else if ((place.nType == 3 || place.nType == 5) && Readable(place))
        {
            std::memcpy(&nExpected, m_Model.Value(place.nType, Flat(place)), 4);
        }
    }
    const int nValue =
        m_pImage->GetCommonParamTypePPC(static_cast<tagenVirtualPathType>(nGroup), nPath, static_cast<enCommonParamTypes>(nRole));
    Check(nValue == nExpected, "role %d of %d/%d is %d", nRole, nGroup, nPath, nValue);
}

void CImageBench::Operate(CInput& input)
{
    static void (CImageBench::*const caOperations[])(CInput&) = {
        &CImageBench::Set,        &CImageBench::Get,      &CImageBench::SI,          &CImageBench::Flag,
        &CImageBench::BlockFlags, &CImageBench::Mask,     &CImageBench::PlaceReader, &CImageBench::Read,
        &CImageBench::Write,      &CImageBench::Position, &CImageBench::CheckRange,  &CImageBench::Common};
    (this->*caOperations[input.Below(sizeof caOperations / sizeof caOperations[0])])(input);
}

} // namespace Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t unSize)
{
    static Fuzz::CImageBench& bench = *new Fuzz::CImageBench;
    Fuzz::CInput input(pData, unSize);
    bench.Run(input);
    return 0;
}
