#include <gtest/gtest.h>

#include <cmnmessage.h>
