#pragma once

#include <functional>
#include <string>
#include <vector>

namespace zqbase {

// Runs the program with these arguments, its output appended to outputPath, and waits for it;
// its exit status, or -1 when it could not be run or was killed.
int runAndWait(const std::vector<std::string>& argv, const std::string& outputPath);

// Alive and not a zombie.
bool processAlive(int pid);
std::string processCommand(int pid);                 // /proc/<pid>/cmdline with NULs as spaces
std::vector<std::string> processArguments(int pid);  // /proc/<pid>/cmdline, one entry per argument
std::string processExecutable(int pid);              // /proc/<pid>/exe; empty when it cannot be read
std::string processName(int pid);                    // /proc/<pid>/comm
std::vector<int> childrenOf(int pid);
std::vector<int> processesNamed(const std::string& name);  // by /proc/<pid>/comm
std::vector<int> allProcesses();                           // those /proc lists, zombies left out
// Whether one of the process's descriptors is open on a file under directory (only the
// processes of this user, or every one for root, can be looked into).
bool holdsFileUnder(int pid, const std::string& directory);

// Calls ready every 50 ms until it returns true or timeoutMs passed; its last answer.
bool waitFor(int timeoutMs, const std::function<bool()>& ready);

}  // namespace zqbase
