#include "Network/Shadow.h"

#include "Support/Records.h"
#include "Support/SystemCalls.h"
#include "Support/Updates.h"
#include "Terminal/Common.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace
{

using Support::tBytes;
typedef std::vector<std::string> tTexts;

const stEndpoint c_Updates = {0xe100002e, 7060};
const stEndpoint c_Changes = {0xe100002d, 7050};
const stEndpoint c_MC = {0x0a000001, 40000};
const stEndpoint c_Client = {0x0a000002, 50000};
const stEndpoint c_OtherClient = {0x0a000003, 50000};
constexpr std::int64_t c_nSecond = 1000000;
constexpr std::int64_t c_nStart = 1700000000 * c_nSecond;

struct stCase
{
    stAddress address;
    stValue value;
    stValue other;
};

stValue Number(int nValue)
{
    stValue value;
    value.nValue = nValue;
    return value;
}

stValue Number(float fValue)
{
    stValue value;
    value.fValue = fValue;
    return value;
}

stValue Text(const char* szText)
{
    stValue value;
    value.strValue = szText;
    return value;
}

// A parameter of each message type, and two values that are not what it begins with.
const stCase c_aOfEachType[] = {
    {{enString, enMicInput, 143, 1}, Text("Kick In"), Text("Kick Out")},
    {{enRotary, enMicInput, 143, 279}, Number(0.5f), Number(-0.0f)},
    {{enSwitch, enMicInput, 143, 575}, Number(1), Number(0)},
    {{enInteger, enMicInput, 143, 22}, Number(-2), Number(0x01020304)},
    {{enFader, enMicInput, 143, 1}, Number(std::numeric_limits<float>::quiet_NaN()), Number(1.0f)},
    {{enOther, enMicInput, 143, 0}, Number(7), Number(8)},
    {{enMeter, enMicInput, 143, 8}, Number(200), Number(1)},
};
const stAddress c_Fader = {enFader, enMicInput, 3, 0};
const stAddress c_Integer = {enInteger, enMicInput, 3, 0};

void Write(CBMAContainer& image, const stAddress& address, const stValue& value)
{
    WriteValue(image, {address, value}, false);
    image.SetPPC(address.enType, address.enPathType, address.nPath, address.nParam, static_cast<unsigned char>(value.nValue), false,
                 false);
}

tBytes Record(const stAddress& address, const stValue& value)
{
    tBytes bytes;
    std::uint32_t unBits = static_cast<std::uint32_t>(value.nValue);
    if (address.enType == enRotary || address.enType == enFader)
    {
        std::memcpy(&unBits, &value.fValue, sizeof unBits);
    }
    if (address.enType == enString)
    {
        bytes.assign(value.strValue.Data(), value.strValue.Data() + RyGConsoleString::enSize);
    }
    else
    {
        Support::AppendBig(bytes, unBits);
    }
    return Support::Record(address.enType, address.enPathType, address.nPath, address.nParam, bytes);
}

std::string AskedBy(const stEndpoint& client)
{
    return client == stEndpoint() ? "the MC itself" : client.Text();
}

// What an MC and its clients send, given to a shadow.
class Shadow : public ::testing::Test
{
protected:
    void Take(const stEndpoint& source, const stEndpoint& destination, const tBytes& bytes)
    {
        stDatagram datagram = {m_nTime, source, destination, bytes};
        m_pShadow->Take(datagram);
    }

    // The MC shows what it has.
    void Update(int nUpdateType = enMCUpdateSurface)
    {
        for (const tBytes& bytes : Support::Datagrams(++m_unId, Support::Update(*m_pMC, nUpdateType)))
        {
            Take(m_MC, c_Updates, bytes);
        }
    }

    void UpdateAll()
    {
        Update(enMCUpdateRotary);
        Update(enMCUpdateSurface);
    }

    void Ask(const stEndpoint& client, const stAddress& address, const stValue& value)
    {
        Take(client, c_Changes, Support::Datagram(enDatagramPPC, 5, 1, 1, Record(address, value)));
    }

    // The MC gives a parameter this value and shows it. Who had asked for it; empty when it is no change.
    std::string Origin(const stAddress& address, const stValue& value)
    {
        Write(*m_pMC, address, value);
        Update(address.enType == enString || address.enType == enRotary ? enMCUpdateRotary : enMCUpdateSurface);
        const std::vector<stImageChange>& changes = m_pShadow->GetChanges();
        EXPECT_LE(changes.size(), 1u);
        return changes.empty() ? "" : AskedBy(changes[0].client);
    }

    tTexts Changes() const
    {
        tTexts texts;
        for (const stImageChange& change : m_pShadow->GetChanges())
        {
            texts.push_back(AddressText(change.address) + " " + ValueText(change.address, change.before) + " -> " +
                            ValueText(change.address, change.after));
        }
        return texts;
    }

    tTexts Requests() const
    {
        tTexts texts;
        for (const stClientChange& request : m_pShadow->GetRequests())
        {
            EXPECT_EQ(m_nTime, request.nTime);
            texts.push_back(Format("%d of %u, type %d: %s %s for ", request.nRecord, request.unMessageId, request.nDatagramType,
                                   AddressText(request.address).c_str(), ValueText(request.address, request.value).c_str()) +
                            request.client.Text());
        }
        return texts;
    }

    Support::CSteadyTime m_Time;
    const std::unique_ptr<CBMAContainer> m_pMC = std::make_unique<CBMAContainer>();
    const std::unique_ptr<CShadow> m_pShadow = std::make_unique<CShadow>(stMulticastLink());
    stEndpoint m_MC = c_MC;
    std::int64_t m_nTime = c_nStart;
    std::uint32_t m_unId = 100;
};

} // namespace

TEST_F(Shadow, TheFirstBlocksOfATypeAreNoChange)
{
    Write(*m_pMC, c_Fader, Number(0.5f));
    Write(*m_pMC, c_aOfEachType[enRotary].address, Number(0.5f));
    Update(enMCUpdateSurface);
    EXPECT_EQ(tTexts(), Changes());
    Update(enMCUpdateRotary);
    EXPECT_EQ(tTexts(), Changes());
    EXPECT_EQ(0.5f, ReadValue(m_pShadow->Image(), c_Fader).fValue);
    Write(*m_pMC, c_Fader, Number(1.0f));
    Write(*m_pMC, c_aOfEachType[enRotary].address, Number(-1.0f));
    Update(enMCUpdateSurface);
    EXPECT_EQ(tTexts({"MicInput/3/Fader/0 0.5 -> 1"}), Changes());
    Update(enMCUpdateRotary);
    EXPECT_EQ(tTexts({"MicInput/143/Rotary/279 0.5 -> -1"}), Changes());
}

// Switches and integers have come before: those of the same update that have not are no changes.
TEST_F(Shadow, AnUpdateMayBringFirstBlocksAndChanges)
{
    Update(enMCUpdateSwitchesIntegers4);
    Write(*m_pMC, c_Fader, Number(0.5f));
    Write(*m_pMC, c_Integer, Number(9));
    Update(enMCUpdateSurface);
    EXPECT_EQ(tTexts({"MicInput/3/Integer/0 0 -> 9"}), Changes());
}

TEST_F(Shadow, ChangesOfEveryTypeAreToldInOrderWithBothValues)
{
    UpdateAll();
    for (const stCase& each : c_aOfEachType)
    {
        Write(*m_pMC, each.address, each.value);
    }
    Update(enMCUpdateRotary);
    EXPECT_EQ(tTexts({"MicInput/143/String/1 \"\" -> \"Kick In\"", "MicInput/143/Rotary/279 0 -> 0.5"}), Changes());
    Update(enMCUpdateSurface);
    EXPECT_EQ(tTexts({"MicInput/143/Switch/575 0 -> 1", "MicInput/143/Integer/22 0 -> -2", "MicInput/143/Fader/1 0 -> nan",
                      "MicInput/143/Other/0 0 -> 7", "MicInput/143/Meter/8 0 -> 200"}),
              Changes());
    Update(enMCUpdateSurface);
    EXPECT_EQ(tTexts(), Changes());
}

TEST_F(Shadow, AChangeTellsTheDatagramThatCompletedItsUpdate)
{
    Update();
    Write(*m_pMC, c_Fader, Number(0.5f));
    const std::vector<tBytes> datagrams = Support::Datagrams(0x7edcba98, Support::Update(*m_pMC, enMCUpdateSurface));
    ASSERT_EQ(2u, datagrams.size());
    m_nTime += 5;
    Take(c_MC, c_Updates, datagrams[0]);
    EXPECT_EQ(tTexts(), Changes());
    m_nTime += 7;
    const stEndpoint other = {0x0a000009, 1234};
    Take(other, c_Updates, datagrams[1]);
    ASSERT_EQ(tTexts({"MicInput/3/Fader/0 0 -> 0.5"}), Changes());
    const stImageChange& change = m_pShadow->GetChanges()[0];
    EXPECT_EQ(c_nStart + 12, change.nTime);
    EXPECT_EQ(other, change.sender);
    EXPECT_EQ(other, m_pShadow->GetMC());
    EXPECT_EQ(0x7edcba98u, change.unMessageId);
}

TEST_F(Shadow, WhatADatagramBroughtLastsUntilTheNext)
{
    Update();
    Write(*m_pMC, c_Fader, Number(0.5f));
    Update();
    EXPECT_EQ(1u, Changes().size());
    Ask(c_Client, c_Fader, Number(1.0f));
    EXPECT_EQ(tTexts(), Changes());
    EXPECT_EQ(1u, Requests().size());
    Take(c_MC, {0xe100002e, 7061}, {});
    EXPECT_EQ(tTexts(), Requests());
}

TEST_F(Shadow, AChangeIsTheClientsThatAskedForItsValue)
{
    UpdateAll();
    for (const stCase& each : c_aOfEachType)
    {
        Ask(c_Client, each.address, each.value);
        EXPECT_EQ("10.0.0.2:50000", Origin(each.address, each.value)) << AddressText(each.address);
        EXPECT_EQ("the MC itself", Origin(each.address, each.other)) << AddressText(each.address);
    }
}

TEST_F(Shadow, AnotherValueThanAskedForIsTheMCs)
{
    UpdateAll();
    for (const stCase& each : c_aOfEachType)
    {
        Write(*m_pMC, each.address, each.other);
        UpdateAll();
        Ask(c_Client, each.address, each.other);
        EXPECT_EQ("the MC itself", Origin(each.address, each.value)) << AddressText(each.address);
        EXPECT_EQ("10.0.0.2:50000", Origin(each.address, each.other)) << AddressText(each.address) << ": still asked for";
    }
}

// Its neighbours, and those of other types that have its number, get what was asked for.
TEST_F(Shadow, AnotherParameterThanAskedForIsTheMCs)
{
    Update();
    const stAddress others[] = {{enInteger, enMicInput, 3, 1}, {enInteger, enMicInput, 4, 0}, {enInteger, enMicSplitCPU, 3, 0}};
    Ask(c_Client, c_Integer, Number(1));
    for (const stAddress& other : others)
    {
        EXPECT_EQ("the MC itself", Origin(other, Number(1))) << AddressText(other);
    }
    const stAddress switchOfItsNumber = AddressAt(enSwitch, NumberOf(c_Integer));
    EXPECT_EQ("the MC itself", Origin(switchOfItsNumber, Number(1)));
    EXPECT_EQ("10.0.0.2:50000", Origin(c_Integer, Number(1)));
}

TEST_F(Shadow, AChangeIsTheMCsMoreThanFiveSecondsAfterTheRequest)
{
    Update();
    for (const auto& [nLater, szOrigin] : {std::pair<std::int64_t, const char*>{0, "10.0.0.2:50000"},
                                           {5 * c_nSecond, "10.0.0.2:50000"},
                                           {5 * c_nSecond + 1, "the MC itself"},
                                           {3600 * c_nSecond, "the MC itself"}})
    {
        Ask(c_Client, c_Integer, Number(7));
        m_nTime += nLater;
        EXPECT_EQ(szOrigin, Origin(c_Integer, Number(7))) << nLater;
        Origin(c_Integer, Number(0));
    }
}

TEST_F(Shadow, ARequestIsAnsweredOnce)
{
    Update();
    Ask(c_Client, c_Integer, Number(7));
    EXPECT_EQ("10.0.0.2:50000", Origin(c_Integer, Number(7)));
    EXPECT_EQ("the MC itself", Origin(c_Integer, Number(0)));
    EXPECT_EQ("the MC itself", Origin(c_Integer, Number(7)));
}

TEST_F(Shadow, EachOfTwoClientsGetsWhatItAskedFor)
{
    Update();
    Ask(c_Client, c_Integer, Number(1));
    Ask(c_OtherClient, c_Fader, Number(1.0f));
    EXPECT_EQ("10.0.0.3:50000", Origin(c_Fader, Number(1.0f)));
    EXPECT_EQ("10.0.0.2:50000", Origin(c_Integer, Number(1)));

    Ask(c_Client, c_Integer, Number(2)); // both want the same parameter, and the MC takes one after the other
    Ask(c_OtherClient, c_Integer, Number(3));
    EXPECT_EQ("10.0.0.2:50000", Origin(c_Integer, Number(2)));
    EXPECT_EQ("10.0.0.3:50000", Origin(c_Integer, Number(3)));
}

TEST_F(Shadow, OfTwoClientsThatAskForTheSameTheLaterIsAnswered)
{
    Update();
    Ask(c_Client, c_Integer, Number(1));
    Ask(c_OtherClient, c_Integer, Number(1));
    EXPECT_EQ("10.0.0.3:50000", Origin(c_Integer, Number(1)));
    Origin(c_Integer, Number(0));
    EXPECT_EQ("the MC itself", Origin(c_Integer, Number(1)));
}

TEST_F(Shadow, WhatWasAskedForBeforeTheAnsweredRequestIsOvertaken)
{
    Update();
    Ask(c_Client, c_Integer, Number(1));
    Ask(c_OtherClient, c_Integer, Number(2));
    EXPECT_EQ("10.0.0.3:50000", Origin(c_Integer, Number(2)));
    EXPECT_EQ("the MC itself", Origin(c_Integer, Number(1)));
}

TEST_F(Shadow, RemembersTheLast256RequestsOfAParameter)
{
    Update();
    for (int nValue = 1; nValue <= 257; ++nValue)
    {
        Ask(c_Client, c_Integer, Number(nValue));
    }
    EXPECT_EQ("the MC itself", Origin(c_Integer, Number(1)));
    EXPECT_EQ("10.0.0.2:50000", Origin(c_Integer, Number(2)));
    EXPECT_EQ("10.0.0.2:50000", Origin(c_Integer, Number(257)));
}

TEST_F(Shadow, RequestsAreToldWithTheirPlacesAndWhatIsNoneIsPassedOver)
{
    tBytes records = Record(c_Integer, Number(7));
    for (const tBytes& record :
         {Record({enInteger, enMicInput, 144, 0}, Number(1)), Support::Record(enInteger, enMicInput, 3, 0, {0, 0, 1}),
          Support::Record(enFader, enMicInput, 3, 0, {0, 0, 1}), Support::Record(enString, enMicInput, 3, 0, {'1', '2', '3'}),
          Record(c_aOfEachType[enString].address, Text("Kick In"))})
    {
        Support::Append(records, record);
    }
    Take(c_Client, c_Changes, Support::Datagram(enDatagramPPC, 0xfffffffe, 1, 1, records));
    EXPECT_EQ(tTexts({"0 of 4294967294, type 1: MicInput/3/Integer/0 7 for 10.0.0.2:50000",
                      "5 of 4294967294, type 1: MicInput/143/String/1 \"Kick In\" for 10.0.0.2:50000"}),
              Requests());
    Take(c_OtherClient, c_Changes, Support::Datagram(enDatagramPPCFlagged, 6, 1, 1, Record(c_Fader, Number(0.5f))));
    EXPECT_EQ(tTexts({"0 of 6, type 3: MicInput/3/Fader/0 0.5 for 10.0.0.3:50000"}), Requests());
    Take(c_OtherClient, c_Changes, Support::Datagram(2, 6, 1, 1, Record(c_Fader, Number(0.5f))));
    EXPECT_EQ(tTexts(), Requests());
}

TEST_F(Shadow, RequestsInFragmentsAreJoinedUpToTheLongestMessage)
{
    tBytes records;
    while (records.size() + 29 <= c_nMaxFragments * std::size_t(c_nMaxPayload))
    {
        Support::Append(records, Record(c_Integer, Number(7)));
    }
    std::vector<tBytes> datagrams = Support::Datagrams(8, records);
    ASSERT_EQ(5u, datagrams.size());
    for (tBytes& bytes : datagrams)
    {
        EXPECT_EQ(tTexts(), Requests());
        bytes[3] = enDatagramPPC;
        Take(c_Client, c_Changes, bytes);
    }
    EXPECT_EQ(records.size() / 29, Requests().size());
}

TEST_F(Shadow, IsWholeWhenEveryTypeHasCome)
{
    EXPECT_FALSE(m_pShadow->IsWhole());
    Update(enMCUpdateRotary);
    EXPECT_FALSE(m_pShadow->IsWhole());
    Update(enMCUpdateSwitchesIntegers4);
    EXPECT_FALSE(m_pShadow->IsWhole());
    const std::vector<tBytes> datagrams = Support::Datagrams(++m_unId, Support::Update(*m_pMC, enMCUpdateSurface));
    Take(c_MC, c_Updates, datagrams[1]);
    EXPECT_FALSE(m_pShadow->IsWhole());
    Take(c_MC, c_Updates, datagrams[0]);
    EXPECT_TRUE(m_pShadow->IsWhole());
}

TEST_F(Shadow, TheMCIsWhoSentTheLastUpdate)
{
    EXPECT_EQ(stEndpoint(), m_pShadow->GetMC());
    Ask(c_Client, c_Fader, Number(1.0f));
    EXPECT_EQ(stEndpoint(), m_pShadow->GetMC());
    Update();
    EXPECT_EQ(c_MC, m_pShadow->GetMC());
    m_MC = {0x0a000007, 40001};
    Update();
    EXPECT_EQ(m_MC, m_pShadow->GetMC());
    m_MC = c_MC;
    m_unId -= 2;
    Update(); // overtaken
    EXPECT_EQ(stEndpoint({0x0a000007, 40001}), m_pShadow->GetMC());
}

TEST_F(Shadow, WhatGoesElsewhereIsPassedOver)
{
    const tBytes request = Support::Datagram(enDatagramPPC, 5, 1, 1, Record(c_Fader, Number(0.5f)));
    const stEndpoint elsewhere[] = {{0xe100002d, 7051}, {0xe100002f, 7050}, {0xe100002e, 7050}, {0xe100002d, 7060}, {}};
    const std::vector<tBytes> update = Support::Datagrams(7, Support::Update(*m_pMC, enMCUpdateSurface));
    for (const stEndpoint& destination : elsewhere)
    {
        Take(c_Client, destination, request);
        EXPECT_EQ(tTexts(), Requests()) << destination.Text();
        Take(c_MC, destination, update[0]);
        Take(c_MC, destination, update[1]);
    }
    EXPECT_EQ(0u, m_pShadow->Follower().GetTypesReceived());
    EXPECT_EQ(0u, m_pShadow->Follower().GetStatistics().aunCount[enCountDatagrams]);
}

TEST_F(Shadow, UpdatesMayGoToAnotherGroupAndPort)
{
    stMulticastLink link;
    link.strGroup = "239.1.2.3";
    link.unPort = 7000;
    CShadow other(link);
    const std::vector<tBytes> update = Support::Datagrams(7, Support::Update(*m_pMC, enMCUpdateSurface));
    for (const stEndpoint& destination : {c_Updates, stEndpoint({0xef010203, 7000})})
    {
        EXPECT_EQ(0u, other.Follower().GetTypesReceived());
        for (const tBytes& bytes : update)
        {
            stDatagram datagram = {c_nStart, c_MC, destination, bytes};
            other.Take(datagram);
        }
    }
    EXPECT_EQ(0x7cu, other.Follower().GetTypesReceived());
}

TEST_F(Shadow, WhatDoesNotDecodeKeepsNothingElseOut)
{
    Update();
    Write(*m_pMC, c_Fader, Number(0.5f));
    testing::internal::CaptureStdout(); // the library's line
    for (int nTime = 0; nTime < 3; ++nTime)
    {
        Take(c_MC, c_Updates, Support::Datagram(0, ++m_unId, 1, 1, Support::UpdateHeader(1, 0, 2)));
        EXPECT_EQ(tTexts(), Changes());
    }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(3u, m_pShadow->Follower().GetStatistics().aunCount[enDecodeErrorInvalid]);
    Update();
    EXPECT_EQ(tTexts({"MicInput/3/Fader/0 0 -> 0.5"}), Changes());
}

TEST_F(Shadow, WhatIsShorterThanAHeaderIsPassedOver)
{
    for (std::size_t unLength = 0; unLength < std::size_t(c_nDatagramHeader); ++unLength)
    {
        Take(c_MC, c_Updates, tBytes(unLength, 0));
        Take(c_Client, c_Changes, tBytes(unLength, 0));
        EXPECT_EQ(tTexts(), Requests());
    }
    EXPECT_EQ(20u, m_pShadow->Follower().GetStatistics().aunCount[enRejectedTooShort]);
}

TEST_F(Shadow, AnUpdateThatWasOvertakenChangesNothing)
{
    Update();
    Write(*m_pMC, c_Integer, Number(5));
    m_unId -= 2;
    m_nTime += c_nSecond;
    const auto start = m_Time.Now();
    Update();
    EXPECT_EQ(tTexts(), Changes());
    EXPECT_EQ(1u, m_pShadow->Follower().GetUpdatesOvertaken());
    EXPECT_EQ(start, m_Time.Now()) << "waited for nothing";
}

// A live one passes that second by itself; of a capture, which takes no time, it is waited for.
TEST_F(Shadow, AnMCThatBeginsAnewIsHeardWhenASecondHasPassedSinceTheLastUpdate)
{
    for (const int nAlreadyPassed : {0, 250, 1000, 5000})
    {
        Write(*m_pMC, c_Integer, Number(-1));
        m_unId = 1000;
        m_nTime += 10 * c_nSecond;
        Update();
        const auto start = m_Time.Now();
        m_Time.Pass(std::chrono::milliseconds(nAlreadyPassed));
        m_unId = 10;
        m_nTime += c_nSecond + 1;
        EXPECT_EQ("the MC itself", Origin(c_Integer, Number(nAlreadyPassed))) << nAlreadyPassed;
        EXPECT_EQ(std::max(nAlreadyPassed, 1000), (m_Time.Now() - start) / std::chrono::milliseconds(1));
        Update();
        EXPECT_EQ(std::max(nAlreadyPassed, 1000), (m_Time.Now() - start) / std::chrono::milliseconds(1)) << "and once only";
    }
    EXPECT_EQ(0u, m_pShadow->Follower().GetUpdatesOvertaken());
}

// What it sends within that second is left alone, as a live client does.
TEST_F(Shadow, AnMCThatBeginsAnewAtOnceIsHeardASecondLater)
{
    Update();
    m_nTime += c_nSecond / 2;
    m_unId = 10;
    EXPECT_EQ("", Origin(c_Integer, Number(1)));
    m_nTime += c_nSecond / 2 + 1;
    EXPECT_EQ("the MC itself", Origin(c_Integer, Number(2)));
    EXPECT_EQ(1u, m_pShadow->Follower().GetUpdatesOvertaken());
}

TEST_F(Shadow, OneNumberLowerIsAnewAndTheSameNumberIsNot)
{
    Update();
    m_nTime += 2 * c_nSecond;
    --m_unId;
    const auto start = m_Time.Now();
    EXPECT_EQ("the MC itself", Origin(c_Integer, Number(1)));
    EXPECT_EQ(start, m_Time.Now());
    m_nTime += 2 * c_nSecond;
    m_unId -= 2;
    EXPECT_EQ("the MC itself", Origin(c_Integer, Number(2)));
    EXPECT_EQ(start + std::chrono::seconds(1), m_Time.Now());
}

TEST_F(Shadow, NobodyIsWaitedForWhoHasHigherNumbersOrIsTheFirst)
{
    const auto start = m_Time.Now();
    m_unId = 0xfffffff0;
    for (int nUpdate = 0; nUpdate < 3; ++nUpdate)
    {
        Write(*m_pMC, c_Integer, Number(nUpdate + 1));
        m_nTime += 10 * c_nSecond;
        Update();
        m_unId += 0x10; // past the highest
    }
    EXPECT_EQ(start, m_Time.Now());
    EXPECT_EQ(3u, m_pShadow->Follower().GetUpdatesApplied());
}
