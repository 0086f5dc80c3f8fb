// Linked into every fuzz target: the library's logging never starts by itself here, so that
// millions of hostile inputs write no log files into the environment (failures are judged by
// statuses and the targets' checks, not by log lines).
bool g_bLoggingDoAutoInit = false;
