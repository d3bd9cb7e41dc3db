#include <gtest/gtest.h>

#include <cmnmsgdgst5.h>
