// An array of messages: the rows of a repeated sub-message.
#ifndef CALLORV_MSG_MSG_ARRAY_H
#define CALLORV_MSG_MSG_ARRAY_H

#include "callorv/error/error.h"

class CMsg;

// Message pointers in the order in which they were added. Use from one thread at a time.
class CALLORV_API CMsgArray : public CLastError {
 public:
  explicit CMsgArray(bool p_bAdopt) noexcept;    // true: the array owns its messages and frees them
  ~CMsgArray();

  int GetSize() const { return m_iSize; }            // messages in it, null ones included
  int GetCapacity() const { return m_iCapacity; }    // messages that fit without growing
  // Whether the array owns its messages; changing it frees none.
  void SetAdoptFlag(bool p_bAdopt) { m_bAdopt = p_bAdopt; }
  bool GetAdoptFlag() const { return m_bAdopt; }

  // The message at p_iIndex, borrowed; outside the array null, with -27 "<CMsgArray::GetAt:(0 <= %d < %d)>" in
  // GetLastError().
  CMsg* GetAt(int p_iIndex);
  // Stores p_pMsg (taken when adopting) at p_iIndex, after freeing what stood there when adopting. 0, or -27 with
  // "<CMsgArray::SetAt:(0 <= %d < %d)>".
  int SetAt(int p_iIndex, CMsg* p_pMsg);
  // Appends p_pMsg (taken when adopting). Its index from 0 on; -12 for null and -11 when the first storage cannot be
  // had, both without a text. Throws std::bad_alloc when the array cannot grow; it is then as before and the
  // caller keeps p_pMsg.
  int Add(CMsg* p_pMsg);
  // Frees the messages when adopting, then the storage. The adopt flag stays.
  void RemoveAll();

  // Room. p_iSize below 1: an eighth of the size more, at least 4 and at most 1024 slots. p_iSize above the
  // capacity: p_iSize slots more than there are. Otherwise nothing. New slots are null. Throws std::bad_alloc.
  void GrowBuffer(int p_iSize);
  void SetBufferSize(int p_iSize) { GrowBuffer(p_iSize); }
  // GrowBuffer(p_iSize + 1), then the size is p_iSize; a negative one counts as 0. Shrinking frees no message: what
  // lies beyond is no longer counted and the caller's to free. Throws std::bad_alloc.
  void SetSize(int p_iSize);

 private:
  CMsg** m_apMsg;
  int m_iSize;
  int m_iCapacity;
  bool m_bAdopt;

  friend struct callorv::detail::COwner;
};

#endif
