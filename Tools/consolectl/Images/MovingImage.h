// The simulated MC's image, and how it moves.
#pragma once

#include "LogicalControls.h"

#include <set>

class CMovingImage
{
public:
    CBMAContainer& Image() { return m_Image; }

    // Something in every block, the same for the same seed on every machine.
    void Fill(unsigned int unSeed);

    // The first mic inputs' faders swing from -60 to 0 dB, until a client sets them; their meters swing on.
    void Move(double dSeconds, int nMovingFaders);
    void ClientSets(const stPPCAddress& address);

private:
    CBMAContainer m_Image;
    std::set<int> m_TakenOver; // mic inputs whose fader a client has set
};
