// test_command.cpp
#include <gtest/gtest.h>
