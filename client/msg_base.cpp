// Base of typed message classes.
#include "callorv/client/msg_base.h"

CMsgBase::CMsgBase() = default;
CMsgBase::CMsgBase(const CMsgBase& p_c) = default;
CMsgBase& CMsgBase::operator=(const CMsgBase& p_c) = default;
CMsgBase::~CMsgBase() = default;
