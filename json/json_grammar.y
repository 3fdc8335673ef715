/* The grammar of a message: one value. It is deliberately wider than JSON: a list may open with a
 * comma. Every action moves values on the builder's stack; what the grammar's own stack holds is
 * trivial, so nothing has to be released when a parse fails. */
%code requires {
#include <cstddef>
#include <cstdint>

#include "json/json_builder.h"
#include "json/parse_stop.h"
}

%code provides {
namespace valmere {

// What a scanner knows besides its text.
struct ScanState {
  ParseStop stop;
  const char* broken_end = nullptr;  // of the broken string that the scanner is in, if any
  std::size_t matches = 0;           // tokens, and what was passed over
};

}  // namespace valmere

int valmere_json_lex(VALMERE_JSON_STYPE* token, void* scanner);
}

%code {
namespace {

void valmere_json_error(valmere::JsonBuilder& builder, void*, const char* message) {
  builder.set_error(message);
}

}  // namespace

/* A message may be nested until the stack has this many entries. */
#define YYMAXDEPTH 10000
}

%define api.pure full
%define api.prefix {valmere_json_}
%define api.token.prefix {JSON_}
%parse-param {valmere::JsonBuilder& builder} {void* scanner}
%lex-param {void* scanner}

%union {
  std::int64_t integer;
  double real;
  bool boolean;
  struct {
    const char* data;
    std::size_t size;
  } text;
  valmere::JsonBuilder::Mark first;
}

%token COMMA 258
%token COLON 259
%token ARRAY_OPEN 260
%token ARRAY_CLOSE 261
%token OBJECT_OPEN 262
%token OBJECT_CLOSE 263
%token <text> DOUBLE_QUOTED 264
%token <text> SINGLE_QUOTED 265
%token <integer> INTEGER 266
%token <real> FLOAT 267
%token <boolean> BOOLEAN 268
%token NULL_VALUE 269

%type <first> members elements

%%

start:
    value
  ;

object:
    OBJECT_OPEN members OBJECT_CLOSE  { if (!builder.CloseObject($2)) YYABORT; }
  ;

array:
    ARRAY_OPEN elements ARRAY_CLOSE  { if (!builder.CloseArray($2)) YYABORT; }
  ;

value:
    INTEGER  { if (!builder.Push($1)) YYABORT; }
  | FLOAT  { if (!builder.Push($1)) YYABORT; }
  | BOOLEAN  { if (!builder.Push($1)) YYABORT; }
  | NULL_VALUE  { if (!builder.PushNull()) YYABORT; }
  | string  { if (!builder.PushString()) YYABORT; }
  | object
  | array
  ;

string:
    DOUBLE_QUOTED  { if (!builder.PushText({$1.data, $1.size})) YYABORT; }
  | SINGLE_QUOTED  { if (!builder.PushText({$1.data, $1.size})) YYABORT; }
  ;

members:
    %empty  { $$ = builder.AfterLast(); }
  | string COLON value  { $$ = builder.AtLast(); }
  | members COMMA string COLON value  { $$ = $1; }
  ;

elements:
    %empty  { $$ = builder.AfterLast(); }
  | value  { $$ = builder.AtLast(); }
  | elements COMMA value  { $$ = $1; }
  ;
