// Declarations-only stand-in: the scripting engine's values, runtime errors and listener
// (maxscript/maxscript.h, kernel/value.h, kernel/exceptions.h, util/listener.h) as far as the
// KV Cache binding uses them. See ../../README.md.
#pragma once

#include "../ifnpub.h"

class Value {
 public:
  virtual ~Value();
  virtual void to_fpvalue(FPValue& v);
};

class CharStream : public Value {
 public:
  virtual void wputs(const MCHAR* str);
  virtual int printf(const MCHAR* format, ...);
  virtual void flush();
};

class Listener : public Value {
 public:
  CharStream* edit_stream;
};
extern Listener* the_listener;

class MAXScriptException {
 public:
  virtual ~MAXScriptException();
};
class RuntimeError : public MAXScriptException {
 public:
  RuntimeError(const MCHAR* s1);
  ~RuntimeError() override;
};
