#include <gtest/gtest.h>

#include <cmnmsgcatalog.h>
