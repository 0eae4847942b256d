// Each adds one subcommand.
#pragma once

#include "Terminal/Command.h"

void AddDoctor(CCommand& console);
void AddMc(CCommand& console);
void AddFollow(CCommand& console);
void AddWatch(CCommand& console);
void AddGet(CCommand& console);
void AddSet(CCommand& console);
void AddSend(CCommand& console);
void AddParams(CCommand& console);
void AddStats(CCommand& console);
void AddTop(CCommand& console);
void AddVerify(CCommand& console);
void AddWeb(CCommand& console);
void AddRecord(CCommand& console);
void AddReplay(CCommand& console);
void AddShow(CCommand& console);
void AddWhy(CCommand& console);
void AddDiagnostics(CCommand& console);
void AddManual(CCommand& console);
