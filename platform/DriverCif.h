// Driver command interface of the gateway (libDriverMgr): synchronous commands to the media module.
//
// Requirements on an implementation:
// - safe to call from any thread, with many commands in flight at once;
// - on success (0) *rsp holds a buffer of *rspLen bytes that the caller releases with
//   DriverCif_FreeBuffer; on failure *rsp is left alone and errMsg says why;
// - timeoutSec bounds the wait for the answer.
#pragma once

#include <string>

int DriverCif_InputCmdToMediaSyn(const char* cmd, int cmdLen, char** rsp, int* rspLen, std::string* errMsg,
                                 int reserved, int timeoutSec);
void DriverCif_FreeBuffer(char* buf);
