// Changes by OSC, with liblo.
#include "Peers.h"

#include <lo/lo.h>

namespace
{

// Each change is a message of its own with the parameter's path, to which liblo adds the type, and the value in network order. The
// paths are made once. No time to live is set: liblo would repeat the call for each message.
class COscChanges : public CChangeLink
{
public:
    explicit COscChanges(int nParams)
        : CChangeLink(nParams),
          m_pDestination(lo_address_new(c_szChangesGroup, std::to_string(c_unChangesPort).c_str()), lo_address_free)
    {
        for (int nParam = 0; nParam < nParams; ++nParam)
        {
            m_Paths.push_back("/micinput/" + std::to_string(enFirstPath + nParam / enPathParams) + "/rotary/" +
                              std::to_string(nParam % enPathParams));
        }
    }

private:
    void Change(int nParam, float fValue) override
    {
        if (lo_send(m_pDestination.get(), m_Paths[static_cast<std::size_t>(nParam)].c_str(), "f", static_cast<double>(fValue)) < 0)
        {
            throw std::string("liblo did not send: ") + lo_address_errstr(m_pDestination.get());
        }
    }

    const std::unique_ptr<void, void (*)(lo_address)> m_pDestination;
    std::vector<std::string> m_Paths;
};

} // namespace

tLink OscChanges(int nParams)
{
    return std::make_unique<COscChanges>(nParams);
}
