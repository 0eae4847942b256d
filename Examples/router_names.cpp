// Prints identifiers of the audio router. No network.
#include "LogicalControls.h"

#include <iostream>

int main()
{
    using namespace RouterDiagnostics;
    std::cout << NT_SURFACE << ", " << PORT_LOCAL_ROUTER << ", " << SPLITTER_PORT_A_AND_B << "\n";
    // 2 NT_SURFACE SURFACE, 250(PORT_LOCAL_ROUTER), 2(SPLITTER_PORT_A_AND_B)
}
