#include <gtest/gtest.h>

#include <cmnnetwork.h>
