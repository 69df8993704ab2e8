// Values that may be absent, passed by value to the setters of CMsg and filled by its getters.
#ifndef CALLORV_MSG_NULLABLE_H
#define CALLORV_MSG_NULLABLE_H

#include <cstddef>

// A value that may be absent. Throws what copying a T throws.
template <class T>
struct T_Nullable {
  T m_Value;
  bool m_bSet;    // whether m_Value is there

  T_Nullable() : m_Value(), m_bSet(false) {}
  explicit T_Nullable(T p_Value) : m_Value(p_Value), m_bSet(true) {}    // is set
  // Makes it present, or absent.
  void Set(T p_Value) {
    m_Value = p_Value;
    m_bSet = true;
  }
  void Clear() {
    m_Value = T();
    m_bSet = false;
  }
  T Get() const { return m_Value; }    // T() when absent
  bool IsSet() const { return m_bSet; }    // whether the value is there
};

typedef T_Nullable<int> CInt;
typedef T_Nullable<double> CDbl;
typedef T_Nullable<bool> CBool;
static_assert(offsetof(CInt, m_bSet) == 4 && offsetof(CDbl, m_bSet) == 8 && offsetof(CBool, m_bSet) == 1,
              "programs know their layout");

#endif
