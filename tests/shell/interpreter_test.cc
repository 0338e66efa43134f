// Evaluation: messages, assignments, blocks, calls of actions, and what ends a statement.
#include "shell/workspace.h"

#include <sys/resource.h>

#include <csignal>

namespace shell {
namespace {

using InterpreterTest = WorkspaceTest;

TEST_F(InterpreterTest, Calculates) {
  EXPECT_EQ(answer("1 + 2 * 3"), "9");
  EXPECT_EQ(answer("-7 // 2"), "-4");
  EXPECT_EQ(answer("-7 \\\\ 2"), "1");
  EXPECT_EQ(answer("3 < 4"), "true");
  EXPECT_EQ(answer("9223372036854775807 + 1"), "error: the result does not fit in 64 bits");
  EXPECT_EQ(answer("1 // 0"), "error: division by zero");
  EXPECT_EQ(answer("1 + nil"), "error: the argument is no integer but of class UndefinedObject");
}

TEST_F(InterpreterTest, ComparesByContents) {
  EXPECT_EQ(answer("'a' = 'a'"), "true");
  EXPECT_EQ(answer("'a' == 'a'"), "false");
  EXPECT_EQ(answer("#a == #a"), "true");
  EXPECT_EQ(answer("#(1 'x') = #(1 'x')"), "true");
  EXPECT_EQ(answer("'a' = #[97]"), "false");
  EXPECT_EQ(answer("1152921504606846976 = 1152921504606846976"), "true");
  EXPECT_EQ(answer("3 ~= 4"), "true");
}

TEST_F(InterpreterTest, LooksAtAndChangesObjects) {
  EXPECT_EQ(answer("'abc' size"), "3");
  EXPECT_EQ(answer("'abc' at: 2"), "$b");
  EXPECT_EQ(answer("#[7 8] at: 2"), "8");
  EXPECT_EQ(answer("'abc' at: 4"), "error: the index 4 is not in 1 to 3");
  EXPECT_EQ(answer("s := String new: 3 withAll: $x. s at: 1 put: $a. s"), "'axx'");
  EXPECT_EQ(answer("'abcd' copyFrom: 2 to: 3"), "'bc'");
  EXPECT_EQ(answer("#(1 2 3) copyFrom: 2 to: 3"), "#(2 3)");
  EXPECT_EQ(answer("'abc' copyFrom: 2 to: 4"), "error: 2 to 4 does not lie within 1 to 3");
  EXPECT_EQ(answer("#(1) , #(2)"), "#(1 2)");
  EXPECT_EQ(answer("ByteArray new: 2"), "#[0 0]");
  EXPECT_EQ(answer("Array new: 2"), "#(nil nil)");
  EXPECT_EQ(answer("'b' asSymbol"), "#b");
  EXPECT_EQ(answer("#b asString"), "'b'");
  EXPECT_EQ(answer("'ab' asUtf16 size"), "4");
  EXPECT_EQ(answer("#[97] asString"), "'a'");
  EXPECT_EQ(answer("'a' asByteArray"), "#[97]");
  EXPECT_EQ(answer("#('b' 'a') sorted"), "#('a' 'b')");
  EXPECT_EQ(answer("3 foo"), "error: SmallInteger does not understand #foo");
  EXPECT_EQ(answer("String size"), "error: String class does not understand #size");
}

TEST_F(InterpreterTest, RefusesToChangeWhatIsInvariant) {
  EXPECT_EQ(answer("s := 'abc'. s beInvariant. s at: 1 put: $x").substr(0, 11), "error 2106 ");
  EXPECT_EQ(answer("s"), "'abc'");
}

TEST_F(InterpreterTest, ChoosesAndRepeats) {
  EXPECT_EQ(answer("3 < 4 ifTrue: ['y'] ifFalse: ['n']"), "'y'");
  EXPECT_EQ(answer("3 > 4 ifTrue: ['y']"), "nil");
  EXPECT_EQ(answer("true and: [false]"), "false");
  EXPECT_EQ(answer("true or: [nil foo]"), "true");
  EXPECT_EQ(answer("n := 0. 10 timesRepeat: [n := n + 1]. n"), "10");
  EXPECT_EQ(answer("[n > 3] whileTrue: [n := n - 1]. n"), "3");
  EXPECT_EQ(answer("[n := n - 1. n = 0] whileFalse. n"), "0");
  EXPECT_EQ(answer("b := [n + 5]. b value"), "5");
  EXPECT_EQ(answer("3 ifTrue: [4]"), "error: SmallInteger does not understand #ifTrue:");
}

TEST_F(InterpreterTest, GoesOnAfterAnErrorWhenAskedTo) {
  EXPECT_EQ(answer("[KvfClose(KvFile new)] ifError: ['caught']"), "'caught'");
  EXPECT_EQ(answer("Smalltalk lastError"), "2364");
  EXPECT_EQ(answer("[3] ifError: [4]"), "3");
}

TEST_F(InterpreterTest, ReadsAndWritesFilesThroughTheActions) {
  answer("f := KvFile new. KvfOpen(f, 'x', 'w+', false)");
  EXPECT_EQ(answer("KvfWrite(f, e'one\\ntwo', 1, 7)"), "7");
  EXPECT_EQ(answer("KvfSeek(f, 0, 0)"), "0");
  EXPECT_EQ(answer("KvfGetLine(f, nil, 1, 10, nil)"), "e'one\\n'");
  EXPECT_EQ(answer("KvFileRead(f, 10)"), "'two'");
  EXPECT_EQ(answer("KvFileRead(f, 10)"), "''");
  EXPECT_EQ(answer("KvFileFetchErrorString(f, 8)"), "'attempt'");
  EXPECT_EQ(answer("KvFileFetchErrorString(f, 0)"), "''");
  EXPECT_EQ(answer("KvFileWrite(f, #[33])"), "true");
  EXPECT_EQ(answer("KvfClose(f). KvFileRead(f, 1)"), "-1");
}

TEST_F(InterpreterTest, DescribesRaisedErrors) {
  EXPECT_EQ(answer("KvfClose(KvFile new)"),
            "error 2364 (file object is not registered in this session), not fatal, arguments: "
            "aKvFile#1");
  EXPECT_EQ(answer("Session select: 0. KvfClose(KvFile new)"),
            "error 4100 (there is no session, or it has no file map), fatal, arguments: 0");
}

TEST_F(InterpreterTest, RefusesWrongCalls) {
  EXPECT_EQ(answer("KvfClos(3)"),
            "error: there is no action or function 'KvfClos'; did you mean KvfClose?");
  EXPECT_EQ(answer("KvfSeek(1)"),
            "error: KvfSeek takes 3 arguments (oFile, oPosition, oKind), not 1");
  EXPECT_EQ(answer("KvFileRead(1)"),
            "error: KvFileRead takes 3 arguments (oFile, count, sessionId), not 1");
  EXPECT_EQ(answer("KvfClose([3])"), "error: KvfClose takes objects, and a Block is none");
  EXPECT_EQ(answer("nowhere"), "error: there is no variable or class 'nowhere'");
}

TEST_F(InterpreterTest, ClosesAFileThatNothingRefersTo) {
  answer("f := KvFile new. KvfOpen(f, 'x', 'w', false)");
  EXPECT_EQ(answer("KvfFinalizeAll(KvFile)"), "1");
  EXPECT_EQ(answer("n := Smalltalk openDescriptors. f := nil. n - Smalltalk openDescriptors"), "1");
  EXPECT_EQ(answer("KvfFinalizeAll(KvFile)"), "0");
}

TEST_F(InterpreterTest, KeepsTemporariesThroughCollectionsInLoops) {
  EXPECT_EQ(answer("'kept' , ([300000 timesRepeat: ['garbage' , 'more']. 'too'] value)"),
            "'kepttoo'");
  EXPECT_EQ(answer("{'a' , 'b'. (200000 timesRepeat: ['x' , 'y']). 'c'}"), "#('ab' 200000 'c')");
  EXPECT_LT(kvhost::liveObjects(), 200000);
}

TEST_F(InterpreterTest, ChangesSessions) {
  EXPECT_EQ(answer("a := Session current. b := Session begin. b = Session current"), "true");
  EXPECT_EQ(answer("f := KvFile new. KvfOpen(f, 'x', 'w', false)"), "1");
  EXPECT_EQ(answer("Session select: a. KvfIsOpen(f)").substr(0, 10), "error 2364");
  EXPECT_EQ(answer("KvFileWrite(f, 'abc', b)"), "true");
  EXPECT_EQ(answer("Session end: b. Session current = a"), "true");
  EXPECT_EQ(answer("Session select: 99999"), "error: there is no session 99999");
}

TEST_F(InterpreterTest, PlacesAnErrorAtItsMessage) {
  Nodes nodes = parse("1 +\n  2 foo");
  try {
    interpreter_->evaluate(*nodes.at(0));
    FAIL() << "no error";
  } catch (const EvaluationError& error) {
    ASSERT_TRUE(error.position);
    EXPECT_EQ(error.position->line, 2);
    EXPECT_EQ(error.position->column, 5);
  }
}

TEST_F(InterpreterTest, StopsALoopThatTheUserInterrupts) {
  kvhost::enableInterrupts();
  raise(SIGINT);
  EXPECT_EQ(answer("[[true] whileTrue] ifError: ['not reached']"), "interrupted");
}

TEST_F(InterpreterTest, RunsScriptsUpToTheFirstError) {
  std::ostringstream errors;
  RunOptions options;
  Runner stopping(*interpreter_, errors, options);
  EXPECT_EQ(stopping.run("1\n2 foo\n3", "s"), RunResult::Failed);
  EXPECT_EQ(out_.str(), "1\n");
  EXPECT_EQ(errors.str(), "s:2:3: error: SmallInteger does not understand #foo\n");
  EXPECT_EQ(stopping.run("4 )", "s"), RunResult::SyntaxFailed);
  options.keepGoing = true;
  options.printAnswers = true;
  Runner going(*interpreter_, errors, options);
  EXPECT_EQ(going.run("1\n2 foo\n3", "s"), RunResult::Failed);
  EXPECT_EQ(out_.str(), "1\n1\n3\n");
}

TEST_F(InterpreterTest, RefusesBlocksThatRunThemselvesForever) {
  EXPECT_EQ(answer("b := [b value]. b value"), "error: evaluations are nested more than 1000 deep");
  EXPECT_EQ(answer("b := [[b value] ifError: [7]]. b value"), "7");
  EXPECT_EQ(answer("3 + 4"), "7");
}

TEST_F(InterpreterTest, KeepsABlockWhileItRunsAndAsLongAsAVariableHoldsIt) {
  answer("b := [b := nil. #(1 2) size. 'still here']");
  EXPECT_EQ(answer("b value"), "'still here'");
  EXPECT_EQ(answer("b"), "nil");
  answer("b := ['one']");
  answer("c := b. b := ['two']");
  EXPECT_EQ(answer("c value , b value"), "'onetwo'");
  answer("10 timesRepeat: [d := b. b := c. c := d]");
  EXPECT_EQ(answer("c value , b value"), "'onetwo'");
  answer("b := [b := c := d := 3. false]");
  EXPECT_EQ(answer("b whileTrue: b"), "nil");
  answer("b := [b := [7]. b value]");
  EXPECT_EQ(answer("(b value) + (b value)"), "14");
}

TEST_F(InterpreterTest, SeesAVariableAsItIsEachTimeThatAnExpressionIsEvaluated) {
  EXPECT_EQ(answer("n := 0. 5 timesRepeat: [n := n + n + 1]. n"), "31");
  EXPECT_EQ(answer("x := 1. {x. x := 2. x. x := 'three'. x}"), "#(1 2 2 'three' 'three')");
  EXPECT_EQ(answer("[y] ifError: [y := 4]. y"), "4");
  EXPECT_EQ(answer("z := [3]. {z class ifError: [1]} size"),
            "error: Block does not understand #class");
}

TEST_F(InterpreterTest, KeepsWhatAnExpressionHoldsAcrossACollection) {
  answer("s := 'kept'");
  EXPECT_EQ(answer("{s , '!'. s := nil. Smalltalk collectGarbage. 'c' , 'd'. s} size"), "5");
  EXPECT_EQ(answer("{'a' , 'b'. [Smalltalk collectGarbage. 'c' , 'd'] value}"), "#('ab' 'cd')");
  EXPECT_EQ(answer("('a' , 'b') , ([Smalltalk collectGarbage. 'c' , 'd'] value)"), "'abcd'");
  EXPECT_EQ(answer("KvfSize(KvFile, (('a' , 'b') , ([Smalltalk collectGarbage. 'cd'] value)))"),
            "-1");
}

TEST_F(InterpreterTest, EvaluatesAChainOfAnyLength) {
  std::string chain = "0";
  for (int i = 0; i < 20'000; i++) chain += " + 1";
  EXPECT_EQ(answer(chain), "20000");
}

TEST_F(InterpreterTest, ComparesArraysThatHoldThemselvesOrAreNestedDeep) {
  answer("a := {nil. nil}. a at: 1 put: a. a at: 2 put: a");
  answer("b := {nil. nil}. b at: 1 put: b. b at: 2 put: b");
  EXPECT_EQ(answer("a = b"), "true");
  EXPECT_EQ(answer("a = {b. 3}"), "false");
  answer("c := 1. 200000 timesRepeat: [c := {c}]. d := 1. 200000 timesRepeat: [d := {d}]");
  EXPECT_EQ(answer("c = d"), "true");
  EXPECT_EQ(answer("c = {d}"), "false");
}

TEST_F(InterpreterTest, RefusesAnExitCodeThatTheSystemWouldCut) {
  EXPECT_EQ(answer("Smalltalk quit: 256"), "error: the exit code 256 is not in 0 to 255");
  EXPECT_EQ(answer("Smalltalk quit: -1"), "error: the exit code -1 is not in 0 to 255");
  EXPECT_THROW(answer("Smalltalk quit: 255"), QuitRequest);
}

TEST_F(InterpreterTest, ClosesFilesThatALoopDropsBeforeDescriptorsRunOut) {
  answer("before := Smalltalk openDescriptors. most := 0");
  answer(
      "2000 timesRepeat: [f := KvFile new. KvfOpen(f, 'x', 'w', false). "
      "f := Smalltalk openDescriptors - before. most < f ifTrue: [most := f]]");
  EXPECT_EQ(answer("most < 300"), "true");
  EXPECT_EQ(answer("most > 200"), "true");
}

TEST_F(InterpreterTest, CountsDescriptorsOnlyWhereOneIsLeft) {
  // A sanitizer's first look at an error of this type takes a descriptor of its own.
  EXPECT_EQ(answer("3 openDescriptors"),
            "error: SmallInteger does not understand #openDescriptors");
  struct rlimit former {};
  getrlimit(RLIMIT_NOFILE, &former);
  struct rlimit none = former;
  none.rlim_cur = 0;
  setrlimit(RLIMIT_NOFILE, &none);
  std::string text = answer("Smalltalk openDescriptors");
  setrlimit(RLIMIT_NOFILE, &former);
  EXPECT_EQ(text, "error: no descriptor is left for listing them");
  EXPECT_EQ(answer("3 + 4"), "7");
}

}  // namespace
}  // namespace shell
