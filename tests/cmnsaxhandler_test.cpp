#include <gtest/gtest.h>

#include <cmnsaxhandler.h>
