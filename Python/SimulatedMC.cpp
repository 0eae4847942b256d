// The MC of consolectl mc, on a thread of its own.
#include "Module.h"

#include "Network/Mailbox.h"
#include "Network/SimulatedMC.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>

namespace
{

constexpr std::chrono::milliseconds c_LookPeriod(5);

class CRunningMC : public CSimulatedMC
{
public:
    explicit CRunningMC(const stMCOptions& options) : CSimulatedMC(options), m_Tasks(c_unMostTasks), m_bStop(false)
    {
        RaiseIfFailed(Open());
        m_Run = std::async(std::launch::async, [this] { Run(); });
    }
    ~CRunningMC() override { Stop(); }

    void Stop()
    {
        m_bStop = true;
        m_Run.wait();
    }

    // Does something with the MC on its thread, between two steps, and waits for it. Not for what needs Python.
    template <class Task>
    auto Ask(Task task)
    {
        const py::gil_scoped_release release;
        const auto pTask = std::make_shared<std::packaged_task<decltype(task())()>>(task);
        auto answer = pTask->get_future();
        m_Tasks.Put([pTask] { (*pTask)(); }, sizeof *pTask);
        while (!IsDone(answer))
        {
            if (IsDone(m_Run) && !IsDone(answer))
            {
                m_Run.get(); // it may say why
                throw Closed("MC");
            }
        }
        return answer.get();
    }

private:
    // Or will be within milliseconds, which it waits.
    template <class Future>
    static bool IsDone(const Future& future)
    {
        return future.wait_for(c_LookPeriod) == std::future_status::ready;
    }

    bool IsOver() override
    {
        for (const std::function<void()>& task : m_Tasks.Take())
        {
            task();
        }
        return m_bStop;
    }

    static constexpr std::size_t c_unMostTasks = 1 << 20; // bytes

    CMailbox<std::function<void()>> m_Tasks;
    std::atomic<bool> m_bStop;
    std::shared_future<void> m_Run;
};

class CMC
{
public:
    explicit CMC(const stMCOptions& options) : m_pMC(std::make_shared<CRunningMC>(options)) {}

    bool IsClosed() const { return m_pMC == nullptr; }
    py::object Get(const py::object& where) const;
    void Set(const py::object& where, const py::object& object);
    tImage Image() const;
    py::dict Statistics() const;
    void Close();

private:
    std::shared_ptr<CRunningMC> Opened() const { return IsClosed() ? throw Closed("MC") : m_pMC; }

    std::shared_ptr<CRunningMC> m_pMC; // none: closed
};

py::object CMC::Get(const py::object& where) const
{
    const stAddress address = ToAddress(where);
    const std::shared_ptr<CRunningMC> pMC = Opened();
    return FromValue(address, pMC->Ask([&] { return ReadValue(pMC->Image(), address); }));
}

void CMC::Set(const py::object& where, const py::object& object)
{
    const stAddress address = ToAddress(where);
    const stChange change = {address, ToValue(address, object)};
    const std::shared_ptr<CRunningMC> pMC = Opened();
    pMC->Ask([&] { pMC->Set(change); });
}

tImage CMC::Image() const
{
    const std::shared_ptr<CRunningMC> pMC = Opened();
    return pMC->Ask([&] { return std::make_shared<CBMAContainer>(pMC->Image()); });
}

py::dict CMC::Statistics() const
{
    const std::shared_ptr<CRunningMC> pMC = Opened();
    const auto counts = pMC->Ask(
        [&]
        {
            const auto count = [&](enFault enWhat) { return static_cast<long>(pMC->Updates().GetCount(enWhat)); };
            return std::vector<std::pair<const char*, long>>{
                {"surface updates", pMC->Counts().lSurface},  {"rotary updates", pMC->Counts().lRotary},
                {"changes applied", pMC->Counts().lApplied},  {"changes refused", pMC->Counts().lRefused},
                {"datagrams sent", pMC->Updates().GetSent()}, {"lost", count(enFaultLost)},
                {"duplicated", count(enFaultDuplicated)},     {"cut short", count(enFaultTruncated)},
                {"corrupted", count(enFaultCorrupted)},       {"held back", count(enFaultHeldBack)}};
        });
    py::dict statistics;
    for (const auto& [szName, lCount] : counts)
    {
        statistics[szName] = lCount;
    }
    return statistics;
}

void CMC::Close()
{
    const std::shared_ptr<CRunningMC> pClosed = std::move(m_pMC);
    if (pClosed != nullptr)
    {
        const py::gil_scoped_release release;
        pClosed->Stop();
    }
}

std::shared_ptr<CMC> Start(const std::string& strGroup, long lPort, const std::string& strInterface, double dSurfaceRate,
                           double dRotaryRate, double dReportPeriod, int nMovingFaders, std::int64_t nSeed, double dLoss,
                           double dDuplicate, double dCorrupt, double dTruncate, int nReorder, double dDelay)
{
    stMCOptions options;
    options.link = ToLink(strGroup, lPort, strInterface);
    options.dSurfaceRate = Within("surface_rate", dSurfaceRate, c_dLowestRate, c_dHighestRate);
    options.dRotaryRate = Within("rotary_rate", dRotaryRate, c_dLowestRate, c_dHighestRate);
    options.dReportPeriod = Within("report_period", dReportPeriod, 0, c_dLongestPeriod);
    options.nMovingFaders = static_cast<int>(Within("moving_faders", nMovingFaders, 0, canMaxPaths[enMicInput]));
    options.faults.unSeed = static_cast<std::uint32_t>(Within("seed", static_cast<double>(nSeed), 0, UINT32_MAX));
    options.faults.unLoss = Millionths(Within("loss", dLoss, 0, 100));
    options.faults.unDuplicate = Millionths(Within("duplicate", dDuplicate, 0, 100));
    options.faults.unCorrupt = Millionths(Within("corrupt", dCorrupt, 0, 100));
    options.faults.unTruncate = Millionths(Within("truncate", dTruncate, 0, 100));
    options.faults.unReorder = static_cast<std::uint32_t>(Within("reorder", nReorder, 0, c_unMostReorder));
    options.faults.nDelay = std::llround(Within("delay", dDelay, 0, c_dLongestDelay) * 1000);
    return std::make_shared<CMC>(options);
}

} // namespace

void AddSimulatedMC(py::module_& module)
{
    const stMCOptions mc;
    py::class_<CMC, std::shared_ptr<CMC>> type(
        module, "SimulatedMC",
        "An MC that multicasts an image and takes clients' changes, until it is closed. Loss to "
        "truncate are percent of its datagrams, delay is milliseconds.");
    type.def(py::init(&Start), py::kw_only(), py::arg("group") = mc.link.strGroup, py::arg("port") = mc.link.unPort,
             py::arg("interface") = mc.link.strInterface, py::arg("surface_rate") = mc.dSurfaceRate,
             py::arg("rotary_rate") = mc.dRotaryRate, py::arg("report_period") = mc.dReportPeriod,
             py::arg("moving_faders") = mc.nMovingFaders, py::arg("seed") = mc.faults.unSeed, py::arg("loss") = 0.0,
             py::arg("duplicate") = 0.0, py::arg("corrupt") = 0.0, py::arg("truncate") = 0.0, py::arg("reorder") = 0,
             py::arg("delay") = 0.0)
        .def("get", &CMC::Get, py::arg("address"))
        .def("set", &CMC::Set, py::arg("address"), py::arg("value"), "A moving fader stays where it is set.")
        .def("image", &CMC::Image, "A copy of the MC's image, as it is now.")
        .def("statistics", &CMC::Statistics);
    AddClosing(type);
}
