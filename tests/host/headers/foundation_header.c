/* The header alone, twice: it needs nothing before it and bears a second time. */
#include "foundation/ZEP_Foundation.h"

ZEP_NotificationObserver foundationHeaderObserver;
