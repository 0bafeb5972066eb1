// test_dllmanager.cpp
#include <gtest/gtest.h>
