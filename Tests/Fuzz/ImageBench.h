// What the operations on images work on.
#pragma once

#include "LogicalControls/ConsoleBitmapArray.h"
#include "LogicalControls/ScopeMask.h"

#include "ImageModel.h"
#include "Input.h"

#include <algorithm>
#include <memory>

namespace Fuzz
{

constexpr int c_nMostOperations = 200;
inline float ToFloat(std::uint32_t unBits)
{
    float fValue;
    std::memcpy(&fValue, &unBits, sizeof fValue);
    return fValue;
}

inline std::uint32_t ToBits(float fValue)
{
    std::uint32_t unBits;
    std::memcpy(&unBits, &fValue, sizeof unBits);
    return unBits;
}

inline tagenPPCMessageType TypeOf(const stPlace& place)
{
    return static_cast<tagenPPCMessageType>(place.nType);
}

inline tagenVirtualPathType GroupOf(const stPlace& place)
{
    return static_cast<tagenVirtualPathType>(place.nGroup);
}

// The loose check of a value array, as stated: the parameter is not scaled, the end is scaled once more.
inline bool PassesRangeCheck(const stPlace& place)
{
    if (place.nGroup > 50 || place.nGroup < 0 || place.nPath >= Paths(place.nGroup) ||
        place.nParam >= Params(place.nType, place.nGroup))
    {
        return false;
    }
    const std::int64_t nWidth = static_cast<std::int64_t>(Width(place.nType));
    const std::int64_t nAddress =
        (Offset(place.nType, place.nGroup) + Params(place.nType, place.nGroup) * place.nPath) * nWidth + place.nParam;
    return nAddress >= 0 && nAddress < Count(place.nType) * nWidth * nWidth;
}

inline bool Readable(const stPlace& place)
{
    return Flat(place) >= 0 && (place.nType == 2 || PassesRangeCheck(place));
}

// An image and a mask, and their models.
class CImageBench
{
public:
    // The global flags are set at first: a write that clears one it should not is seen.
    CImageBench() : m_pImage(std::make_unique<CBMAContainer>()), m_pFresh(std::make_unique<CBMAContainer>())
    {
        QuietStandardError();
        for (int nType = 0; nType < 7; ++nType)
        {
            tBytes& flags = m_FreshModel.Flags(c_nGlobalScope, nType);
            std::fill(flags.begin(), flags.end(), static_cast<unsigned char>(0xff));
        }
        m_Model = m_FreshModel;
        FillImage(*m_pFresh, m_FreshModel);
        FillImage(*m_pImage, m_FreshModel);
    }

    void Run(CInput& input)
    {
        m_nRecords = 0;
        m_bEnd = false;
        m_bStarted = false;
        for (int nOperation = 0; nOperation < c_nMostOperations && !input.Empty(); ++nOperation)
        {
            Operate(input);
        }
        CheckImage(*m_pImage, m_Model);
        CheckMask();
        CheckSIs();
        *m_pImage = *m_pFresh;
        m_Mask.Reset();
        m_Model = m_FreshModel;
        m_MaskModel = m_FreshModel.flags[0];
    }

private:
    void Operate(CInput& input);
    void Set(CInput& input);
    void Store(const stPlace& place, std::uint32_t unValue, const RyGConsoleString& strValue, bool bLite);
    void Get(CInput& input);
    void SI(CInput& input);
    void Flag(CInput& input);
    void BlockFlags(CInput& input);
    void PlaceReader(CInput& input);
    void Read(CInput& input);
    void Write(CInput& input);
    void Position(CInput& input);
    void Mask(CInput& input);
    void CheckRange(CInput& input);
    void Common(CInput& input);

    std::vector<stPPCWithSI> Records(CInput& input);
    void CheckReader();
    void CheckRead(const stPPCWithSI& record, const stPPCWithSI& before, int nScope);
    bool Advance();
    void CheckMask();
    void CheckSIs();

    int m_nRecords = 0;
    std::unique_ptr<CBMAContainer> m_pImage;
    std::unique_ptr<CBMAContainer> m_pFresh;
    CCBMAContainerScopeMask m_Mask;
    stImageModel m_FreshModel;
    stImageModel m_Model;
    std::array<tBytes, 7> m_MaskModel = m_FreshModel.flags[0];
    std::vector<stPlace> m_SIs;
    stPlace m_Reader = {0, 0, 0, 0}; // what is read next
    bool m_bStarted = false;         // false: the cursor is fresh
    bool m_bEnd = false;
};

} // namespace Fuzz
