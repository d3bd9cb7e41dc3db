#include <gtest/gtest.h>

#include <cmnstringtool.h>
