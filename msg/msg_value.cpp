// The cell that holds the value or values of one tag.
#include "msg/msg_value.h"

#include <memory>

#include "msg/value_traits.h"

CMsgValue::~CMsgValue() {
  callorv::detail::WithType(m_eType, [this](auto p_tType) {
    if (m_bMulti) delete (this->*p_tType.pArrayOf);
    else if (const auto* pValue = p_tType.Value(*this)) std::destroy_at(pValue);    // nothing but for a text
  });
}
