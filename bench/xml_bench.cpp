// Messages from and to XML.
#include <callorv/base/exception.h>
#include <callorv/base/stream.h>

#include "figure.h"
#include "figures.h"
#include "floors/bare_parse.h"
#include "floors/plain_writer.h"

namespace {

// Calls that are timed together, so that they take 50 us or more.
int Batch(int p_iRows) { return std::max(1, 100 / p_iRows); }

std::string StringDocument(int p_iBytes) {
  const CMsgPtr pMsg = NewMsg(FIELDS_MSG);
  Expect(pMsg->SetValue(1, std::string(static_cast<size_t>(p_iBytes), 'x').c_str()), "string");
  return ToXml(*pMsg);
}

// A message made, read and freed again; the document is also parsed with nothing done about it.
void Load(benchmark::State& p_cState, std::string p_sXml, int p_iBatch) {
  Compare(
      p_cState, WORK, p_iBatch, [&] { CBareParser::Parse(p_sXml); },
      [&] {
        CMsg cMsg(0, 0, 0, MA_GetMsgDic());
        Expect(cMsg.LoadXml(&p_sXml[0]), "LoadXml");
      });
}

// Written by name.
std::string ByName(int p_iRows) {
  CStream stXml(0, 512);
  Expect(NewReply(MakeRows(p_iRows))->ToXml(&stXml, false, true, 1), "ToXml");
  return std::string(stXml.GetData(), static_cast<size_t>(stXml.GetSize()));
}
// With one blank less in the declaration: the parser reads it.
std::string OtherForm(int p_iRows) {
  std::string sXml = WritePlainly(MakeRows(p_iRows));
  return sXml.erase(sXml.find(" ?>"), 1);
}
// The document lacks its last byte, but not for the floor.
void LoadBroken(benchmark::State& p_cState, int p_iRows) {
  const std::string sWhole = WritePlainly(MakeRows(p_iRows));
  std::string sXml = sWhole.substr(0, sWhole.size() - 1);
  Compare(
      p_cState, WORK, Batch(p_iRows), [&] { CBareParser::Parse(sWhole); },
      [&] {
        CMsg cMsg(0, 0, 0, MA_GetMsgDic());
        try {
          cMsg.LoadXml(&sXml[0]);
        } catch (const CException& cError) {
          benchmark::DoNotOptimize(cError.GetCode());
          return;
        }
        throw std::runtime_error("a broken document was read");
      });
}

void Write(benchmark::State& p_cState, int p_iRows) {
  const std::vector<T_Row> atRow = MakeRows(p_iRows);
  const CMsgPtr pMsg = NewReply(atRow);
  if (ToXml(*pMsg) != WritePlainly(atRow)) throw std::runtime_error("the two writers do not write the same");
  Compare(
      p_cState, WORK, Batch(p_iRows), [&] { benchmark::DoNotOptimize(WritePlainly(atRow)); },
      [&] {
        CStream stXml(0, 512);
        Expect(pMsg->ToXml(&stXml, false, false, 1), "ToXml");
      });
}

// Against a copy of the string into memory of its own.
void WriteString(benchmark::State& p_cState, int p_iBytes) {
  const std::string sText(static_cast<size_t>(p_iBytes), 'x');
  const CMsgPtr pMsg = NewMsg(FIELDS_MSG);
  Expect(pMsg->SetValue(1, sText.c_str()), "string");
  Compare(
      p_cState, WORK, 1, [&] { benchmark::DoNotOptimize(std::string(sText)); },
      [&] {
        CStream stXml(0, 512);
        Expect(pMsg->ToXml(&stXml, false, false, 1), "ToXml");
      });
}

}    // namespace

void RegisterXml() {
  for (const int iRows : {1, 10, 100, 1000, 10000}) {
    Register("load/" + std::to_string(iRows),
             [=](benchmark::State& p_c) { Load(p_c, WritePlainly(MakeRows(iRows)), Batch(iRows)); });
    if (iRows > 1) Register("write/" + std::to_string(iRows), [=](benchmark::State& p_c) { Write(p_c, iRows); });
  }
  Register("load_by_name/100", [](benchmark::State& p_c) { Load(p_c, ByName(100), 1); });
  for (const int iRows : {100, 1000, 10000}) {
    Register("load_other/" + std::to_string(iRows), [=](benchmark::State& p_c) { Load(p_c, OtherForm(iRows), 1); });
  }
  Register("load_broken/100", [](benchmark::State& p_c) { LoadBroken(p_c, 100); });
  for (const int iRows : {1, 3, 10, 30, 100, 300, 1000, 3000, 10000, 30000, 100000}) {
    Register("growth/load/" + std::to_string(iRows),
             [=](benchmark::State& p_c) { Load(p_c, WritePlainly(MakeRows(iRows)), Batch(iRows)); });
    Register("growth/write/" + std::to_string(iRows), [=](benchmark::State& p_c) { Write(p_c, iRows); });
  }
  for (const int iBytes : {1000, 10000, 100000, 1000000, 5000000, 10000000, 20000000}) {
    Register("growth/load_string/" + std::to_string(iBytes),
             [=](benchmark::State& p_c) { Load(p_c, StringDocument(iBytes), 1); });
    Register("growth/write_string/" + std::to_string(iBytes), [=](benchmark::State& p_c) { WriteString(p_c, iBytes); });
  }
}
