// Values that may be absent, passed by value to the setters of CMsg and filled by its getters.
#ifndef CALLORV_MSG_NULLABLE_H
#define CALLORV_MSG_NULLABLE_H

template <class T>
struct T_Nullable {
  T m_Value;
  bool m_bSet;    // whether m_Value is there

  T_Nullable() : m_Value(), m_bSet(false) {}
  explicit T_Nullable(T p_Value) : m_Value(p_Value), m_bSet(true) {}
  void Set(T p_Value) {
    m_Value = p_Value;
    m_bSet = true;
  }
  void Clear() {
    m_Value = T();
    m_bSet = false;
  }
  T Get() const { return m_Value; }    // T() when absent
  bool IsSet() const { return m_bSet; }
};

typedef T_Nullable<int> CInt;
typedef T_Nullable<double> CDbl;
typedef T_Nullable<bool> CBool;

#endif
