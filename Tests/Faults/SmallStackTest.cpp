#include "Faults/AllocationWalk.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr std::size_t c_unWish = 65536; // what threads of a small system have
constexpr unsigned char c_ucUntouched = 0x5c;

// Does a function on a thread whose stack is as small as the system allows, and returns how much of it was used.
class CSmallStack
{
public:
    CSmallStack() : m_unSize(std::max(c_unWish, static_cast<std::size_t>(PTHREAD_STACK_MIN))), m_pStack(nullptr)
    {
        void* pStack = nullptr;
        if (posix_memalign(&pStack, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), m_unSize) == 0)
        {
            m_pStack.reset(static_cast<unsigned char*>(pStack));
        }
    }

    // 0 when there is no such thread to be had. Looked at by the thread itself: some C libraries give a stack back before it is
    // joined.
    std::size_t Do(const std::function<void()>& action)
    {
        std::fill_n(m_pStack.get(), m_unSize, c_ucUntouched);
        std::size_t unUsed = 0;
        const std::function<void()> run = [&]
        {
            action();
            const unsigned char* const pEnd = m_pStack.get() + m_unSize;
            unUsed = static_cast<std::size_t>(pEnd - std::find_if(static_cast<const unsigned char*>(m_pStack.get()), pEnd,
                                                                  [](unsigned char ucByte) { return ucByte != c_ucUntouched; }));
        };
        pthread_attr_t attribute;
        pthread_attr_init(&attribute);
        pthread_t thread;
        const bool bRan = pthread_attr_setstack(&attribute, m_pStack.get(), m_unSize) == 0 &&
                          pthread_create(&thread, &attribute, Run, const_cast<std::function<void()>*>(&run)) == 0 &&
                          pthread_join(thread, nullptr) == 0;
        pthread_attr_destroy(&attribute);
        return bRan ? unUsed : 0;
    }

    std::size_t Size() const { return m_unSize; }

private:
    static void* Run(void* pAction)
    {
        (*static_cast<std::function<void()>*>(pAction))();
        return nullptr;
    }

    struct stFree
    {
        void operator()(unsigned char* pBlock) const { std::free(pBlock); }
    };

    const std::size_t m_unSize;
    std::unique_ptr<unsigned char[], stFree> m_pStack;
};

} // namespace

// Half of it is for who calls the operation.
TEST(SmallStack, IsEnoughForEveryOperation)
{
    CSmallStack stack;
    std::size_t unMost = 0;
    std::string strMost;
    for (const auto pMake :
         {Faults::ImageOperations, Faults::MessageOperations, Faults::ClientOperations, Faults::DiagnosticsOperations})
    {
        for (const Faults::stOperation& operation : pMake())
        {
            testing::internal::CaptureStdout();
            testing::internal::CaptureStderr();
            const Faults::tAction action = operation.pPrepare();
            bool bDone = false;
            const std::size_t unUsed = stack.Do([&] { bDone = action(); });
            testing::internal::GetCapturedStdout();
            testing::internal::GetCapturedStderr();
            EXPECT_TRUE(bDone) << operation.szName;
            EXPECT_GT(unUsed, 0u) << operation.szName;
            strMost = unUsed > unMost ? operation.szName : strMost;
            unMost = std::max(unMost, unUsed);
        }
    }
    EXPECT_LT(unMost, stack.Size() / 2) << strMost;
    RecordProperty("bytes of stack", static_cast<int>(unMost));
    std::printf("Most stack, %zu bytes of %zu: %s\n", unMost, stack.Size(), strMost.c_str());
}
