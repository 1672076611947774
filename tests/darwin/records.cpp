#include "HostRecords.h"
#include "unit/package/source/RecordOffsets.h"
