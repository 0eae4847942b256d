#include "Web/Frames.h"

#include <boost/endian/conversion.hpp>

#include <cstring>

namespace
{

// Beyond that the whole image takes fewer bytes.
constexpr std::size_t c_unMostChanges = 40000;

// The number of each type's first parameter.
std::uint32_t FirstOf(int nType)
{
    std::uint32_t unFirst = 0;
    for (int nBefore = 0; nBefore < nType; ++nBefore)
    {
        unFirst += static_cast<std::uint32_t>(canParameterCounts[nBefore]);
    }
    return unFirst;
}

int TypeOf(std::uint32_t unParameter)
{
    int nType = 0;
    while (nType + 1 < c_nMessageTypes && unParameter >= FirstOf(nType + 1))
    {
        ++nType;
    }
    return nType;
}

void Append(std::string& strBytes, std::uint32_t unNumber)
{
    boost::endian::native_to_big_inplace(unNumber);
    strBytes.append(reinterpret_cast<const char*>(&unNumber), sizeof unNumber);
}

void AppendValue(std::string& strBytes, const stAddress& address, const stValue& value)
{
    std::uint32_t unBits = static_cast<std::uint32_t>(value.nValue);
    if (address.enType == enString)
    {
        strBytes.append(reinterpret_cast<const char*>(&value.strValue), sizeof value.strValue);
        return;
    }
    if (IsFloat(address.enType))
    {
        std::memcpy(&unBits, &value.fValue, sizeof unBits);
    }
    Append(strBytes, unBits);
}

// A count, and each parameter with its value.
void AppendValues(std::string& strBytes, const std::vector<std::uint32_t>& parameters, const CBMAContainer& image)
{
    Append(strBytes, static_cast<std::uint32_t>(parameters.size()));
    for (const std::uint32_t unParameter : parameters)
    {
        const int nType = TypeOf(unParameter);
        const stAddress address =
            AddressAt(static_cast<tagenPPCMessageType>(nType), static_cast<int>(unParameter - FirstOf(nType)));
        Append(strBytes, unParameter);
        AppendValue(strBytes, address, ReadValue(image, address));
    }
}

} // namespace

std::uint32_t ParameterNumber(const stAddress& address)
{
    return FirstOf(address.enType) + static_cast<std::uint32_t>(NumberOf(address));
}

tFrame MakeShowFrame(const std::vector<unsigned char>& marks, const CBMAContainer& show)
{
    std::string strBytes(1, static_cast<char>(enFrameShow));
    strBytes.append(marks.begin(), marks.end());
    std::vector<std::uint32_t> different;
    for (std::uint32_t unParameter = 0; unParameter < marks.size(); ++unParameter)
    {
        if ((marks[unParameter] & enMarkDiffers) != 0)
        {
            different.push_back(unParameter);
        }
    }
    AppendValues(strBytes, different, show);
    return std::make_shared<const std::string>(std::move(strBytes));
}

CFrames::CFrames(CShadow& shadow) : m_Shadow(shadow), m_ChangedIn(static_cast<std::size_t>(c_nParameters)) {}

void CFrames::Take()
{
    const std::uint32_t unFrame = m_unNumber + 1;
    for (const stImageChange& change : m_Shadow.GetChanges())
    {
        const std::uint32_t unParameter = ParameterNumber(change.address);
        if (m_ChangedIn[unParameter] != unFrame)
        {
            m_ChangedIn[unParameter] = unFrame;
            m_Changed.push_back(unParameter);
        }
    }
    if (m_Shadow.Follower().GetTypesReceived() != m_unTypes) // a type's first block is no change
    {
        m_unTypes = m_Shadow.Follower().GetTypesReceived();
        m_unWholeSince = unFrame;
    }
}

void CFrames::Next()
{
    const bool bWhole = m_unWholeSince == m_unNumber + 1;
    ++m_unNumber;
    m_pLast = bWhole ? MakeImage() : MakeChanges(m_Changed);
    m_Changed.clear();
}

tFrame CFrames::Since(std::uint32_t unSeen)
{
    if (unSeen + 1 == m_unNumber && unSeen != 0)
    {
        return m_pLast;
    }
    if (unSeen < m_unWholeSince || unSeen == 0)
    {
        return MakeImage();
    }
    std::vector<std::uint32_t> changed;
    for (std::uint32_t unParameter = 0; unParameter < m_ChangedIn.size() && unSeen < m_unNumber; ++unParameter)
    {
        // What changed in the frame that has begun isn't told as of another one.
        if (m_ChangedIn[unParameter] > unSeen)
        {
            changed.push_back(unParameter);
        }
    }
    return MakeChanges(changed);
}

tFrame CFrames::MakeImage()
{
    if (m_unImageOf != m_unNumber || m_pImage == nullptr)
    {
        const auto pMessage = std::make_unique<CMCUpdateMsg>();
        BuildMCUpdate(m_Shadow.Image(), enMCUpdateAll, *pMessage);
        std::string strBytes(1 + static_cast<std::size_t>(pMessage->GetTotalSize()), static_cast<char>(enFrameImage));
        unsigned char* pBytes = reinterpret_cast<unsigned char*>(strBytes.data()) + 1;
        *pMessage >> &pBytes;
        m_pImage = std::make_shared<const std::string>(std::move(strBytes));
        m_unImageOf = m_unNumber;
    }
    return m_pImage;
}

tFrame CFrames::MakeChanges(const std::vector<std::uint32_t>& parameters)
{
    if (parameters.empty())
    {
        return nullptr;
    }
    if (parameters.size() > c_unMostChanges)
    {
        return MakeImage();
    }
    std::string strBytes(1, static_cast<char>(enFrameChanges));
    AppendValues(strBytes, parameters, m_Shadow.Image());
    return std::make_shared<const std::string>(std::move(strBytes));
}
