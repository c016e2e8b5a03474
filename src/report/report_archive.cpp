#include "report/report_archive.h"
