// kr_public.cpp — public classes and the class factory.
#include "kr_public.h"
