#include "compat/dialect.hpp"
#include "server/program.hpp"

int main(int argumentCount, char** arguments) {
  return quillmere::runProgram(argumentCount, arguments, quillmere::compatDialect);
}
