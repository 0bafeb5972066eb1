// test_xmlsettings.cpp — (placeholder)
#include "test_support.h"
