#include <gtest/gtest.h>

#include <cmnmsgcatalogmgr.h>
