// The date-time text of a rule's window: "year/month/day hour:minute:second".
#include "AlertZelManage.h"

void CAlertZelManage::stringToDateTime(const char* text, Common::_datetime_& out) {}
