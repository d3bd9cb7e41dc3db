#include <gtest/gtest.h>

#include <cmnsaxparser.h>
