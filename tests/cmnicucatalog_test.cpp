#include <gtest/gtest.h>

#include <cmnicucatalog.h>
