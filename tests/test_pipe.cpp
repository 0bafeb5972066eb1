// test_pipe.cpp
#include <gtest/gtest.h>
