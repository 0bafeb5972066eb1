// krcore.h — the umbrella header: host code and plug-in modules include this one.
#ifndef KRCORE_KRCORE_H
#define KRCORE_KRCORE_H

#include "kr_alloc.h"
#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_container.h"
#include "kr_file.h"
#include "kr_globals.h"
#include "kr_hash.h"
#include "kr_hash_impl.h"
#include "kr_init.h"
#include "kr_iostream.h"
#include "kr_iterator_impl.h"
#include "kr_list_impl.h"
#include "kr_mem.h"
#include "kr_persist.h"
#include "kr_queue_impl.h"
#include "kr_reporter.h"
#include "kr_stack_impl.h"
#include "kr_str.h"
#include "kr_strbase.h"
#include "kr_var.h"
#include "kr_vcarray_impl.h"
#include "kr_version.h"
#include "kr_xml.h"

#endif  // KRCORE_KRCORE_H
