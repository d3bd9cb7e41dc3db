// Counted classes of a host whose program and plugins share an instance.
#ifndef HOST_INSTANCES_H
#define HOST_INSTANCES_H

#include "cmnsmartptr.h"

#define HOST_API __attribute__((visibility("default")))

// Instantiated by whoever uses it.
class HOST_API HostSettings : public kelp_cmn_4_4::CCmnRefCount {};

// Instantiated in a shared library of the host's.
class HOST_API HostRegistry : public kelp_cmn_4_4::CCmnRefCount {};
extern template class kelp_cmn_4_4::CCmnContextSingletonAllocator<HostRegistry>;

#endif
