// test_public.cpp
#include <gtest/gtest.h>
