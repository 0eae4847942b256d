// The library beside what the machine allows; Bench.h says how it is called.
#include "Bench.h"

int main(int nArguments, char** ppArguments)
{
    return BenchMain(nArguments, ppArguments,
                     []
                     {
                         AddObjectCases();
                         AddMemoryCases();
                         AddParameterCases();
                         AddRecordCases();
                         AddReportCases();
                         AddUpdateCases();
                     });
}
