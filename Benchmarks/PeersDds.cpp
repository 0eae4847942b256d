// Changes and updates by DDS, with Eclipse Cyclone DDS.
#include "Peers.h"

#include "PeersTypes.h"

#include <dds/dds.h>

#include <chrono>

namespace
{

typedef std::chrono::steady_clock tClock;

constexpr std::chrono::seconds c_LongestDiscovery(10);
constexpr dds_duration_t c_LongestWrite = DDS_SECS(2);

// Readers of the same domain in one process are given their samples without the network. Two domains that call themselves the same
// on the network use it, as two processes would. Only the loopback interface, and no multicast: discovery asks 127.0.0.1.
//
// Messages of up to 65,500 bytes, and fragments that make five of an update, as ours has. Receive buffers of the size that ours
// asks for; it refuses to start with less. The watermarks: the writer does not wait for acknowledgements before several updates are
// under way (as it comes, from 30 kB on). Samples are delivered on the thread that receives, which is how it comes.
std::string Configuration(int nNetworkDomain, bool bBatch)
{
    return "<CycloneDDS><Domain Id='any'><General><Interfaces><NetworkInterface name='lo'/></Interfaces>"
           "<AllowMulticast>false</AllowMulticast><MaxMessageSize>65500B</MaxMessageSize><FragmentSize>64000B</FragmentSize></"
           "General>"
           "<Discovery><ExternalDomainId>" +
           std::to_string(nNetworkDomain) +
           "</ExternalDomainId><ParticipantIndex>auto</ParticipantIndex><Peers><Peer address='127.0.0.1'/></Peers></Discovery>"
           "<Internal><SocketReceiveBufferSize min='4MiB'/><SocketSendBufferSize min='1MiB'/>"
           "<Watermarks><WhcLow>1MB</WhcLow><WhcHigh>4MB</WhcHigh><WhcHighInit>4MB</WhcHighInit></Watermarks>"
           "<WriteBatch>" +
           (bBatch ? "true" : "false") + "</WriteBatch></Internal></Domain></CycloneDDS>";
}

dds_entity_t Made(dds_entity_t entity, const char* szWhat)
{
    if (entity < 0)
    {
        throw std::string("DDS has no ") + szWhat + ": " + dds_strretcode(-entity);
    }
    return entity;
}

// A writer and a reader that have found each other. The listener's function takes what came.
class CDdsPair
{
public:
    CDdsPair(const dds_topic_descriptor_t& type, bool bReliable, int nKeep, bool bBatch, dds_on_data_available_fn take,
             void* pArgument)
        : m_Domains(bBatch), m_Writer(0), m_Reader(0)
    {
        const std::unique_ptr<dds_qos_t, void (*)(dds_qos_t*)> pQos(dds_create_qos(), dds_delete_qos);
        dds_qset_reliability(pQos.get(), bReliable ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT, c_LongestWrite);
        dds_qset_history(pQos.get(), DDS_HISTORY_KEEP_LAST, nKeep);
        const std::unique_ptr<dds_listener_t, void (*)(dds_listener_t*)> pListener(dds_create_listener(pArgument),
                                                                                   dds_delete_listener);
        dds_lset_data_available(pListener.get(), take);
        const dds_entity_t from = Made(dds_create_participant(m_Domains.Id(0), nullptr, nullptr), "participant");
        const dds_entity_t to = Made(dds_create_participant(m_Domains.Id(1), nullptr, nullptr), "participant");
        const dds_entity_t out = Made(dds_create_topic(from, &type, "data", pQos.get(), nullptr), "topic");
        const dds_entity_t in = Made(dds_create_topic(to, &type, "data", pQos.get(), nullptr), "topic");
        m_Reader = Made(dds_create_reader(to, in, pQos.get(), pListener.get()), "reader");
        m_Writer = Made(dds_create_writer(from, out, pQos.get(), nullptr), "writer");
        AwaitMatch();
    }

    void Write(const void* pSample)
    {
        if (dds_write(m_Writer, pSample) != DDS_RETCODE_OK)
        {
            throw std::string("DDS did not write");
        }
    }

    void Flush() { dds_write_flush(m_Writer); }

private:
    // Deletes everything in it, too.
    class CDomains
    {
    public:
        explicit CDomains(bool bBatch) : m_aDomains()
        {
            static int s_nNetworkDomain = 10;
            const std::string strConfiguration = Configuration(++s_nNetworkDomain, bBatch);
            for (int nEnd = 0; nEnd < 2; ++nEnd)
            {
                m_aIds[nEnd] = static_cast<dds_domainid_t>(2 * s_nNetworkDomain + nEnd);
                m_aDomains[nEnd] = dds_create_domain(m_aIds[nEnd], strConfiguration.c_str());
            }
        }
        ~CDomains()
        {
            for (const dds_entity_t domain : m_aDomains)
            {
                if (domain > 0)
                {
                    dds_delete(domain);
                }
            }
        }
        CDomains(const CDomains&) = delete;
        CDomains& operator=(const CDomains&) = delete;

        dds_domainid_t Id(int nEnd) const
        {
            Made(m_aDomains[nEnd], "domain (net.core.rmem_max has to be 4194304 at least)");
            return m_aIds[nEnd];
        }

    private:
        dds_entity_t m_aDomains[2];
        dds_domainid_t m_aIds[2];
    };

    void AwaitMatch()
    {
        const tClock::time_point end = tClock::now() + c_LongestDiscovery;
        dds_publication_matched_status_t published = {};
        dds_subscription_matched_status_t subscribed = {};
        while (published.current_count == 0 || subscribed.current_count == 0)
        {
            if (tClock::now() > end)
            {
                throw std::string("DDS's writer and reader did not find each other");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            dds_get_publication_matched_status(m_Writer, &published);
            dds_get_subscription_matched_status(m_Reader, &subscribed);
        }
    }

    const CDomains m_Domains;
    dds_entity_t m_Writer;
    dds_entity_t m_Reader;
};

// A parameter is an instance, of which the last value is kept.
class CDdsChanges : public CChangeLink
{
public:
    CDdsChanges(int nParams, enDdsWays enWay)
        : CChangeLink(nParams), m_Pair(Peers_Change_desc, enWay == enReliable, 1, enWay == enBatched, Take, this)
    {
    }

    void Flush() override { m_Pair.Flush(); }

private:
    void Change(int nParam, float fValue) override
    {
        const Peers_Change change = {nParam, fValue};
        m_Pair.Write(&change);
    }

    // On the thread that receives.
    static void Take(dds_entity_t reader, void* pThis)
    {
        constexpr int c_nAtOnce = 16;
        CDdsChanges& self = *static_cast<CDdsChanges*>(pThis);
        Peers_Change aChanges[c_nAtOnce];
        void* apChanges[c_nAtOnce];
        for (int nChange = 0; nChange < c_nAtOnce; ++nChange)
        {
            apChanges[nChange] = &aChanges[nChange];
        }
        dds_sample_info_t aInfos[c_nAtOnce];
        int nTaken = 0;
        while ((nTaken = dds_take(reader, apChanges, aInfos, c_nAtOnce, c_nAtOnce)) > 0)
        {
            for (int nChange = 0; nChange < nTaken; ++nChange)
            {
                if (aInfos[nChange].valid_data)
                {
                    self.m_Received[static_cast<std::size_t>(aChanges[nChange].nParam)] = aChanges[nChange].fValue;
                    self.m_Arrivals.Count();
                }
            }
        }
    }

    CDdsPair m_Pair;
};

// Reliable. The octets are taken into a sample of our own, so that no memory is asked for each time.
class CDdsUpdates : public COctetsLink
{
public:
    explicit CDdsUpdates(const std::vector<unsigned char>& update)
        : COctetsLink(update), m_Pair(Peers_Update_desc, true, 8, false, Take, this)
    {
    }

    void Send() override
    {
        const std::uint32_t unOctets = static_cast<std::uint32_t>(m_Update.size());
        const Peers_Update update = {{unOctets, unOctets, m_Update.data(), false}};
        m_Pair.Write(&update);
    }

private:
    struct stTaken
    {
        ~stTaken() { dds_sample_free(&update, &Peers_Update_desc, DDS_FREE_CONTENTS); }

        Peers_Update update = {};
    };

    // On the thread that receives.
    static void Take(dds_entity_t reader, void* pThis)
    {
        CDdsUpdates& self = *static_cast<CDdsUpdates*>(pThis);
        void* pTaken = &self.m_Taken.update;
        dds_sample_info_t info;
        while (dds_take(reader, &pTaken, &info, 1, 1) > 0)
        {
            if (info.valid_data)
            {
                self.Store(self.m_Taken.update.octets._buffer, self.m_Taken.update.octets._length);
            }
        }
    }

    stTaken m_Taken;
    CDdsPair m_Pair;
};

} // namespace

tLink DdsChanges(int nParams, enDdsWays enWay)
{
    return std::make_unique<CDdsChanges>(nParams, enWay);
}

tLink DdsUpdates(const std::vector<unsigned char>& update)
{
    return std::make_unique<CDdsUpdates>(update);
}
