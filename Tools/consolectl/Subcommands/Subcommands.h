// Each adds one subcommand; running it leaves the exit status in nStatus.
#pragma once

namespace CLI
{
class App;
}

void AddDoctor(CLI::App& app, int& nStatus);
void AddMc(CLI::App& app, int& nStatus);
void AddFollow(CLI::App& app, int& nStatus);
void AddWatch(CLI::App& app, int& nStatus);
void AddGet(CLI::App& app, int& nStatus);
void AddSet(CLI::App& app, int& nStatus);
void AddSend(CLI::App& app, int& nStatus);
void AddParams(CLI::App& app, int& nStatus);
void AddStats(CLI::App& app, int& nStatus);
void AddTop(CLI::App& app, int& nStatus);
void AddVerify(CLI::App& app, int& nStatus);
void AddRecord(CLI::App& app, int& nStatus);
void AddReplay(CLI::App& app, int& nStatus);
void AddShow(CLI::App& app, int& nStatus);
void AddWhy(CLI::App& app, int& nStatus);
void AddDiagnostics(CLI::App& app, int& nStatus);
void AddManual(CLI::App& app, int& nStatus);
