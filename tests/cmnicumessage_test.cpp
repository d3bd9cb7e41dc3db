#include <gtest/gtest.h>

#include <cmnicumessage.h>
