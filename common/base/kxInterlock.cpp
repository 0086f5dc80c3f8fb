#include "base/kxInterlock.h"

// Constant-initialised, so usable by static initialisers of any translation unit.
pthread_mutex_t gInterlockMutex = PTHREAD_MUTEX_INITIALIZER;
