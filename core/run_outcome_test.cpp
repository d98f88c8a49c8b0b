#include "core/run_outcome.h"

#include <gtest/gtest.h>

TEST(RunOutcome, VerificationErrorsRankBelowBrokenRunsAndAboveUnwrittenResults) {
    ResetRunOutcome();
    EXPECT_EQ(CurrentExitCode(), kExitOk);
    NoteStoppedEarly();
    NoteResultNotWritten("the frame log", "/x/y.csv", "No such file or directory");
    EXPECT_EQ(CurrentExitCode(), kExitResultsNotWritten);
    NoteVerificationErrors("Verification: 1 of 3 picture checks differed from the reference");
    EXPECT_EQ(CurrentExitCode(), kExitVerificationErrors);
    EXPECT_EQ(static_cast<int>(kExitVerificationErrors), 6);
    NoteRunFailed("lost");
    EXPECT_EQ(CurrentExitCode(), kExitRunFailed);
    NoteCouldNotStart("none");
    EXPECT_EQ(CurrentExitCode(), kExitCouldNotStart);
    const std::vector<std::string> errors = NotedErrors();
    ASSERT_EQ(errors.size(), 4u);
    EXPECT_EQ(errors[0], "Unable to write the frame log [/x/y.csv]: No such file or directory.");
    EXPECT_EQ(errors[1], "Verification: 1 of 3 picture checks differed from the reference");
    ResetRunOutcome();
    EXPECT_EQ(CurrentExitCode(), kExitOk);
}
