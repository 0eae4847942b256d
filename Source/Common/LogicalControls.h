// Everything that a client of Logical Controls needs.
#pragma once

#include "ClientComms/ClientMsgHandler.h"
#include "ClientComms/ImageSync.h"
#include "ClientComms/MsgHandlerBase.h"
#include "ClientComms/RawPPCQueue.h"
#include "ClientComms/SimpleUDPPPCSender.h"
#include "ClientComms/UDPPacket.h"
#include "LogicalControls/ConsoleBitmapArray.h"
#include "LogicalControls/ParameterArray.h"
#include "LogicalControls/ParameterModel.h"
#include "Messages/MCUpdateMsg.h"
#include "Messages/PPCPacket.h"
#include "Runtime/Clock.h"
#include "Runtime/Locks.h"
#include "Runtime/MemPool.h"
#include "Runtime/Memory.h"
