// test_pubdesc.cpp
#include <gtest/gtest.h>
