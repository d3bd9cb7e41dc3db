// A shared library that a host's program and plugins are linked with, built with hidden visibility.
#include "host_instances.h"

template class kelp_cmn_4_4::CCmnContextSingletonAllocator<HostRegistry>;
