#include "report/tus_client.h"
