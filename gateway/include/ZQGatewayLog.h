// Reference gateway: libtvlog's extension for its own programs.
#pragma once

// Closes the log file; the next line opens it again by name. After a log rotation renamed the
// file, the lines go to a new one.
void ZQ_Gateway_ReopenLog();
