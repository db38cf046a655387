// Base library of the gateway (libZQBase): Digest arithmetic, password rating, nonces,
// free ports, port probing and nginx control.
//
// Requirements on an implementation:
// - every function is safe for concurrent calls;
// - outputs are written within the lengths given (GetMiddleString never writes more than
//   outLen bytes, the NUL included; CreateNonce never more than len);
// - CNginxOper::getInstance returns one process-wide object that serialises its own work.
#pragma once

#include <list>
#include <string>
#include <vector>

// 0 correct, -2 stale nonce (otherwise correct), any other value wrong.
int ZQ_BASE_CheckDigest(const char* method, const char* authHeader, const char* ha1);
// -1 cannot rate, 0 too weak, higher values stronger.
int ZQ_BASE_GetPasswrodLevel(const char* password, const char* userName);
int CreateNonce(char* buf, int len);
// Copies the text between the first begin marker and the following end marker; non-zero when found.
int GetMiddleString(const char* src, int srcLen, const char* begin, const char* end, char* out, int outLen);
// Writes 32 lower-case hex digits and a NUL.
int mprGetMD5Hash(const unsigned char* data, int len, char* out);
// Pick a free gateway port of that kind; non-zero on success.
int getHttpPort(unsigned short* port);
int getRtspPort(unsigned short* port);
// -1 when a TCP socket listens on the port on this host.
int CheckPort(int port, int mode);
// Non-zero when the port is held by a process that is not in pids.
int CheckPortOccupy(std::list<int> pids, std::string ip, int port, int mode);

namespace ZQBase {

enum tagNginxOper : int {
    delListenPort = 8,
    addListenPort = 9,
};

class CNginxOper {
public:
    static CNginxOper* getInstance();
    virtual ~CNginxOper() = default;
    // Adds (9) or removes (8) the listening port read as a 32-bit int at arg; non-zero on success.
    virtual int ModifyConfig(tagNginxOper op, void* arg, void* arg2) = 0;
    virtual int Reboot() = 0;  // non-zero on success
    virtual int Quit() = 0;
    virtual int getPid(std::vector<int>& pids) = 0;  // non-zero on success
};

}  // namespace ZQBase
