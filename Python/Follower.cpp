// An image that follows an MC.
#include "Module.h"

#include "Network/Client.h"
#include "Network/SentChanges.h"
#include "Network/StateFollower.h"

namespace
{

constexpr double c_dLoopPeriod = 0.002;
constexpr double c_dLongestTimeout = 86400;

// While it sleeps other threads have Python to themselves: they may even close what is being waited for.
void Pause()
{
    {
        const py::gil_scoped_release release;
        SleepSeconds(c_dLoopPeriod);
    }
    if (PyErr_CheckSignals() != 0)
    {
        throw py::error_already_set();
    }
}

[[noreturn]] void RaiseTimeout(const std::string& strText)
{
    PyErr_SetString(PyExc_TimeoutError, strText.c_str());
    throw py::error_already_set();
}

class CFollower
{
public:
    CFollower(const std::string& strGroup, long lPort, const std::string& strInterface);

    const tImage& Image() const { return m_pImage; }
    const std::string& Sender() const { return m_strSender; }
    bool IsClosed() const { return m_pFollower == nullptr; }

    bool Update();
    void WaitWhole(double dTimeout) { WaitForTypes(c_unWholeImage, dTimeout); }
    void WaitFor(const py::object& where, const py::object& object, double dTimeout);
    void Set(const py::object& where, const py::object& value, double dTimeout);
    void SetAll(const py::object& values, double dTimeout);
    py::tuple TypesReceived() const;
    py::dict States() const;
    py::dict Statistics() const;
    py::dict Senders() const;
    void Close();

private:
    CStateFollower& Opened() const;
    void WaitForTypes(unsigned int unTypes, double dTimeout);
    void Send(const std::vector<stChange>& changes, double dTimeout);

    const stMulticastLink m_Link;
    const tImage m_pImage;
    std::shared_ptr<CStateFollower> m_pFollower; // none: closed
    std::string m_strSender;
};

CFollower::CFollower(const std::string& strGroup, long lPort, const std::string& strInterface)
    : m_Link(ToLink(strGroup, lPort, strInterface)), m_pImage(std::make_shared<CBMAContainer>()),
      m_pFollower(std::make_shared<CStateFollower>(*m_pImage))
{
    m_pFollower->SetRemoteAddress(c_szPPCGroup, 0, int(c_unPPCPort));
    RaiseIfFailed(OpenLink(*m_pFollower, m_Link));
}

CStateFollower& CFollower::Opened() const
{
    return IsClosed() ? throw Closed("follower") : *m_pFollower;
}

// True when an update came.
bool CFollower::Update()
{
    CStateFollower& follower = Opened();
    const std::uint32_t unBefore = follower.GetUpdatesApplied();
    if (follower.UpdateBMA() == CClientMsgHandler::enUpdateDecodeError)
    {
        follower.ClearReceiveErrors();
    }
    RySocketIO::CIPString sender;
    m_strSender = follower.GetLastSender(sender) ? sender.Text() : m_strSender;
    return follower.GetUpdatesApplied() != unBefore;
}

void CFollower::WaitForTypes(unsigned int unTypes, double dTimeout)
{
    Within("timeout", dTimeout, 0, c_dLongestTimeout);
    const tSteadyClock::time_point start = tSteadyClock::now();
    for (Update(); (Opened().GetTypesReceived() & unTypes) != unTypes; Update())
    {
        if (SecondsSince(start) > dTimeout)
        {
            RaiseTimeout(NoImageText(m_Link, dTimeout));
        }
        Pause();
    }
}

void CFollower::WaitFor(const py::object& where, const py::object& object, double dTimeout)
{
    const stAddress address = ToAddress(where);
    const stValue value = ToValue(address, object);
    const tSteadyClock::time_point start = tSteadyClock::now();
    WaitForTypes(1u << address.enType, dTimeout);
    for (; !SameValue(address, ReadValue(*m_pImage, address), value); Update())
    {
        if (SecondsSince(start) > dTimeout)
        {
            RaiseTimeout(Format("%s is %s after %g seconds, not %s", AddressText(address).c_str(),
                                ValueText(address, ReadValue(*m_pImage, address)).c_str(), dTimeout,
                                ValueText(address, value).c_str()));
        }
        Pause();
    }
}

void CFollower::Set(const py::object& where, const py::object& value, double dTimeout)
{
    py::dict values;
    values[where] = value;
    SetAll(values, dTimeout);
}

void CFollower::SetAll(const py::object& values, double dTimeout)
{
    std::vector<stChange> changes;
    unsigned int unTypes = 0;
    const py::dict own = py::dict(values).attr("copy")(); // an address may run Python code, which may change what it was given
    for (const auto& item : own)
    {
        const stAddress address = ToAddress(py::reinterpret_borrow<py::object>(item.first));
        const stValue value = address.enType == enMeter ? ParseValue(enMeter, "") // which it refuses
                                                        : ToValue(address, py::reinterpret_borrow<py::object>(item.second));
        changes.push_back({address, value});
        unTypes |= 1u << address.enType;
    }
    WaitForTypes(unTypes, dTimeout);
    Send(changes, dTimeout);
}

// The timeout begins anew with each change that is back.
void CFollower::Send(const std::vector<stChange>& changes, double dTimeout)
{
    const std::shared_ptr<CStateFollower> pKept = m_pFollower;
    CSentChanges sent(changes, *m_pImage, *pKept, false);
    sent.Send();
    tSteadyClock::time_point lastBack = tSteadyClock::now();
    while (sent.CountLeft() != 0)
    {
        const long lBefore = sent.CountLeft();
        Pause();
        if (Update())
        {
            sent.LeaveOutWhatIsBack();
        }
        if (sent.CountLeft() < lBefore)
        {
            lastBack = tSteadyClock::now();
        }
        else if (SecondsSince(lastBack) > dTimeout)
        {
            RaiseTimeout(sent.LeftText());
        }
        else
        {
            sent.SendAgain();
        }
    }
}

py::tuple CFollower::TypesReceived() const
{
    py::list names;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        if ((Opened().GetTypesReceived() & 1u << nType) != 0)
        {
            names.append(caMessageTypeNames[nType]);
        }
    }
    return names;
}

py::dict CFollower::States() const
{
    py::dict states;
    for (int nType = 0; nType < c_nMessageTypes; ++nType)
    {
        states[caMessageTypeNames[nType]] = TypeStateText(Opened().GetState(static_cast<tagenPPCMessageType>(nType)));
    }
    return states;
}

py::dict CFollower::Statistics() const
{
    const stReceiveStatistics statistics = Opened().GetStatistics();
    py::dict counts;
    for (int nCounter = 0; nCounter < enReceiveCounterCount; ++nCounter)
    {
        counts[ReceiveCounterText(static_cast<enReceiveCounter>(nCounter))] = statistics.aunCount[nCounter];
    }
    counts["datagrams dropped by the kernel"] = Opened().GetSocketStatistics().unKernelDrops;
    return counts;
}

py::dict CFollower::Senders() const
{
    const stReceiveStatistics statistics = Opened().GetStatistics();
    py::dict datagrams;
    for (const auto* pSender = statistics.aSenders; pSender != statistics.aSenders + statistics.nSenders; ++pSender)
    {
        datagrams[pSender->address.Text()] = pSender->unDatagrams;
    }
    return datagrams;
}

void CFollower::Close()
{
    const std::shared_ptr<CStateFollower> pClosed = std::move(m_pFollower);
    if (pClosed != nullptr)
    {
        const py::gil_scoped_release release;
        pClosed->Shutdown();
    }
}

} // namespace

void AddFollower(py::module_& module)
{
    const stMulticastLink link;
    py::class_<CFollower, std::shared_ptr<CFollower>> type(module, "Follower",
                                                           "An image that follows an MC: open until it is closed.");
    type.def(py::init<const std::string&, long, const std::string&>(), py::kw_only(), py::arg("group") = link.strGroup,
             py::arg("port") = link.unPort, py::arg("interface") = link.strInterface)
        .def_property_readonly("image", &CFollower::Image, "Changed by update and by what waits; it outlives the follower.")
        .def_property_readonly("sender", &CFollower::Sender, "Of the last update; empty before the first.")
        .def_property_readonly("types_received", &CFollower::TypesReceived)
        .def("update", &CFollower::Update, "Applies what has come; says whether anything has.")
        .def("wait_whole", &CFollower::WaitWhole, py::arg("timeout") = 5.0)
        .def("wait_for", &CFollower::WaitFor, py::arg("address"), py::arg("value"), py::arg("timeout") = 5.0)
        .def("set", &CFollower::Set, py::arg("address"), py::arg("value"), py::arg("timeout") = 5.0,
             "Changes a parameter at the MC, and waits until its updates show that.")
        .def("set_all", &CFollower::SetAll, py::arg("values"), py::arg("timeout") = 5.0, "Many of them, in few datagrams.")
        .def("states", &CFollower::States)
        .def("statistics", &CFollower::Statistics)
        .def("senders", &CFollower::Senders, "How many datagrams came, by address.");
    AddClosing(type);
}
