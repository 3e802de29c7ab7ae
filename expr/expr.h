// The expression evaluator: xBase key expressions over a table's current
// record, evaluated by recursive descent straight over the text, and the
// table of procedures hosts add to it.
#pragma once

#include <cstdint>

#include "kxcore.h"
#include "rvdb4xx.h"

namespace rv::dbf {
struct DbfState;
}

namespace rv::expr {

// The process-wide evaluator state. Its leading fields are KXEXPRSTATE, the
// record user procedures work on.
struct State {
  KXEXPRSTATE pub;        // result, result_ptr, type, length, pos
  KXBLOCK acc;            // the accumulated value
  void* accPtr;
  uint16_t accType;
  uint16_t accLength;
  bool inDtos;            // a DTOS( is being evaluated
  uint16_t depth;         // terms being evaluated, one inside the other
  int16_t table;          // the data-file handle evaluated against
  dbf::DbfState* dbf;     // its state, locked for the evaluation
};
extern State g_state;

// One entry of the procedure table (kept sorted by name bytes).
struct ProcEntry {
  KXBLOCK nameBlock;      // the name, not NUL-terminated
  KXUSERPROC proc;
  uint16_t nameLength;
};
constexpr uint16_t kProcInitial = 20;
constexpr uint16_t kProcGrow = 10;

// Evaluates `text` (already free of blanks and upper-cased) against table
// handle `table`. On success the value is in g_state.acc/accPtr with its
// type and length; it stays there until the next evaluation.
int16_t Evaluate(int16_t table, const char* text);
// Evaluates one term at g_state.pub.pos into g_state.pub.result. Terms
// nest through function arguments and user procedures; a term more than
// kMaxDepth deep is -7, so that no text can exhaust the stack.
constexpr uint16_t kMaxDepth = 100;
int16_t Term();
// Reads an integer argument at the current position: skips the "(" or ","
// before it; the argument ends at the nearer of the next "," and ")".
int16_t IntArg(int16_t* value);
// Frees the term result block (if any).
void DropResult();
// Frees the accumulator (if any).
void DropAccumulator();
// Hands the accumulator block to the caller; the evaluator forgets it.
KXBLOCK TakeAccumulator();

// Removes every blank and upper-cases, in place.
void Normalize(char* text);

// The procedure table of the working copy: binary search in which an entry
// matches whenever the text begins with its name. Returns the index found,
// or -(insertion point) - 1.
int FindProc(const char* text);
ProcEntry* ProcTable();  // null when there is none
void ReleaseProcTable();
// Copies the procedure-table fields of the working copy back into the
// caller's context record.
void SaveProcs();

}  // namespace rv::expr
