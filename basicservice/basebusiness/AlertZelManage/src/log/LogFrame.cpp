// The 60-byte alert log frame and the write, modify and size messages.
#include "AlertZelManage.h"
