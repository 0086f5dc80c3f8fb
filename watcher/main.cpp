#include "kxWatcher.h"

int main(int argc, char** argv) { return kxWatcherMain(argc, argv); }
