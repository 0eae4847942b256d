// Where something can be lost on its way.
#pragma once

#include "LogicalControls.h"

// The counters of the receive path by the layer that they tell of. What the kernel drops and what is lost of a whole message stands
// beside them.
struct stLossLayer
{
    const char* szLayer;
    enReceiveCounter enCounter;
};

constexpr stLossLayer c_aLossLayers[] = {
    {"frame size", enRejectedTooShort}, {"frame size", enRejectedPayload}, {"frame size", enRejectedTooLarge},
    {"header", enRejectedHeader},       {"ring", enCountEvicted},          {"ring", enCountMixed},
    {"decode", enDecodeErrorNull},      {"decode", enDecodeErrorInvalid},  {"decode", enCountLengthMismatch},
};
