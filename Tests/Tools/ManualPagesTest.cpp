// Texts that no subcommand has today.
#include "Manual/ManualPages.h"
#include "Manual/Completion.h"
#include "Manual/HelpText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace
{

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Key;
using ::testing::Not;

stCommand Command(const std::string& strPath, const std::string& strDescription)
{
    stCommand command;
    command.strName = strPath.substr(strPath.rfind(' ') + 1);
    command.strPath = strPath;
    command.strSummary = strDescription;
    command.strDescription = strDescription;
    return command;
}

stArgument Option(const std::vector<std::string>& names, const std::string& strDescription)
{
    stArgument option;
    option.names = names;
    option.strDescription = strDescription;
    return option;
}

std::string PageOf(const stCommand& command)
{
    stCommand program = Command("program", "A program");
    program.subcommands = {command};
    return ManualPages(program, "1.2")["program-" + command.strName + ".1"];
}

std::string PageWith(const std::string& strDescription)
{
    return PageOf(Command("program do", strDescription));
}

std::string ZshWith(const stArgument& option)
{
    stCommand program = Command("program", "A program");
    program.options = {option};
    return ZshCompletion(program, {})["_consolectl"];
}

TEST(ManualPages, APageForEachSubcommand)
{
    stCommand program = Command("program", "A program");
    program.subcommands = {Command("program do", "Do it"), Command("program undo", "Undo it")};
    program.subcommands[0].subcommands = {Command("program do twice", "Do it twice")};
    tFiles pages = ManualPages(program, "1.2");
    EXPECT_THAT(pages, ElementsAre(Key("program-do.1"), Key("program-undo.1"), Key("program.1")));
    EXPECT_THAT(pages["program.1"], HasSubstr(".TH \"PROGRAM\" 1 \"\" \"program 1.2\"\n"));
    EXPECT_THAT(pages["program-do.1"], HasSubstr(".SH \"SYNOPSIS\"\n\\fBprogram do twice\\fR\n.SH"));
    EXPECT_THAT(pages["program-do.1"], HasSubstr(".SS \"program do twice\"\nDo it twice\n"));
}

TEST(ManualPages, NoTextIsARequest)
{
    EXPECT_THAT(PageWith(".profile is read"), HasSubstr("\n\\&.profile is read\n"));
    EXPECT_THAT(PageWith("'quoted'"), HasSubstr("\n\\(aqquoted\\(aq\n"));
    EXPECT_THAT(PageWith("see\n.br is no request\n'nor this"), HasSubstr("see\n.br\n\\&.br is no request\n.br\n\\(aqnor this\n"));
    EXPECT_THAT(PageWith("  .indented"), HasSubstr(".nf\n\\&.indented\n.fi\n"));
    EXPECT_THAT(PageWith("a\\fBb \"c\" `d` ~e ^f"), HasSubstr("a\\(rsfBb \\(dqc\\(dq \\(gad\\(ga \\(tie \\(haf\n"));
}

TEST(ManualPages, LinesStayLines)
{
    EXPECT_THAT(PageWith("One\nTwo\n\nThree"), HasSubstr("\nOne\n.br\nTwo\n.PP\nThree\n.SH"));
    EXPECT_THAT(
        PageWith("Such as\n  this\n  that\nOr\n\n  those\n\nOr not"),
        HasSubstr("\nSuch as\n.PP\n.RS 4\n.nf\nthis\nthat\n.fi\n.RE\n.PP\nOr\n.PP\n.RS 4\n.nf\nthose\n.fi\n.RE\n.PP\nOr not\n"));
    EXPECT_THAT(PageWith("consolectl do\necho | consolectl do"),
                HasSubstr("\n.RS 4\n.nf\nconsolectl do\necho | consolectl do\n.fi\n.RE\n"));
    EXPECT_THAT(PageWith("Or consolectl do"), HasSubstr(".SH \"DESCRIPTION\"\nOr consolectl do\n"));
}

TEST(ManualPages, AFooterIsExamplesOrNotes)
{
    stCommand command = Command("program do", "Do it");
    EXPECT_THAT(PageOf(command), Not(AnyOf(HasSubstr("EXAMPLES"), HasSubstr("NOTES"))));
    command.strFooter = "Keys: q";
    EXPECT_THAT(PageOf(command), HasSubstr(".SH \"NOTES\"\nKeys: q\n"));
    command.strFooter = "Keys: q\n  q";
    EXPECT_THAT(PageOf(command), HasSubstr(".SH \"EXAMPLES\"\nKeys: q\n.PP\n"));
}

TEST(ManualPages, WhatIsTypedKeepsItsDashes)
{
    EXPECT_THAT(PageWith("time-outs of --until-silent, 0-9 and -6.5"),
                HasSubstr("\ntime-outs of \\-\\-until\\-silent, 0\\-9 and \\-6.5\n"));
}

TEST(ManualPages, OptionsAndArguments)
{
    stCommand command = Command("program do", "Do it");
    command.options = {Option({"-n", "--name"}, "Whose"), Option({"--dry-run"}, "Only say it")};
    command.options[0].strValue = "NAME";
    command.options[0].strLimits = "in [a - z]";
    command.options[0].strDefault = "b";
    command.options[0].bRequired = true;
    command.options[1].excludes = {"--name", "--x"};
    command.arguments = {Option({"WHAT"}, "What to do"), Option({"KEY"}, ""), Option({"VALUE"}, "")};
    command.arguments[0].strValue = "this|that";
    command.arguments[2].bRepeated = true;
    const std::string strPage = PageOf(command);
    EXPECT_THAT(strPage, HasSubstr("\n\\fBprogram do\\fR [\\fIOPTION\\fR]... \\fB\\-\\-name\\fR \\fINAME\\fR "
                                   "[\\fIWHAT\\fR] [\\fIKEY\\fR] [\\fIVALUE\\fR]...\n"));
    EXPECT_THAT(strPage, HasSubstr(".TP\n\\fIWHAT\\fR\nWhat to do (this|that)\n.TP\n\\fB\\-n\\fR"));
    EXPECT_THAT(strPage, HasSubstr("\\fB\\-\\-name\\fR \\fINAME\\fR\nWhose (in [a \\- z], default b, required)\n.TP\n"));
    EXPECT_THAT(strPage, HasSubstr(".TP\n\\fB\\-\\-dry\\-run\\fR\nOnly say it (not with \\-\\-name, \\-\\-x)\n"));
}

TEST(ManualPages, WhatIsHiddenIsOnNoList)
{
    stCommand program = Command("program", "A program");
    program.subcommands = {Command("program do", "Do it"), Command("program undo", "Undo it")};
    program.subcommands[1].bHidden = true;
    tFiles pages = ManualPages(program, "1.2");
    EXPECT_THAT(pages["program.1"], HasSubstr("\nDo it\n"));
    EXPECT_THAT(pages["program.1"], Not(HasSubstr("Undo it")));
    EXPECT_THAT(pages["program-undo.1"], HasSubstr("Undo it"));
    EXPECT_THAT(BashCompletion(program, {})["consolectl"], HasSubstr("['program']='do'\n"));
    EXPECT_THAT(ZshCompletion(program, {})["_consolectl"], HasSubstr("        'do:Do it'\n    )\n"));
}

TEST(ZshCompletion, NoTextEndsADescription)
{
    EXPECT_THAT(ZshWith(Option({"--a"}, "in [0 - 9]: isn't \\ it")), HasSubstr("'--a[in \\[0 - 9\\]: isn'\\''t \\\\ it]'\n"));
}

TEST(ZshCompletion, ValuesOfOptions)
{
    stArgument option = Option({"-f", "--form"}, "How");
    option.strValue = "a:b";
    option.values = {c_szNothing};
    EXPECT_THAT(ZshWith(option), HasSubstr("'(-f --form)-f+[How]:a\\:b: ' \\\n        '(-f --form)--form=[How]:a\\:b: '\n"));
    option.values = {"text", c_szFile};
    EXPECT_THAT(ZshWith(option), HasSubstr("'(-f --form)--form=[How]:a\\:b: _consolectl_values text @file'\n"));
    option.excludes = {"--x"};
    EXPECT_THAT(ZshWith(option), HasSubstr("'(--x -f --form)--form=[How]"));
    option.bRepeated = true;
    EXPECT_THAT(ZshWith(option), HasSubstr("'(--x)*-f+[How]:a\\:b: _consolectl_values text @file'"));
}

TEST(HelpText, IsSetInColumnsThatFitTheWidth)
{
    stCommand command = Command("program do", "Does what the words say that it does, one after another");
    command.options = {Option({"-n", "--name"}, "Whose name it is, of all that there are"),
                       Option({"--a-name-that-is-longer-than-a-column"}, "Another one of those that there are")};
    command.options[0].strValue = "NAME";
    command.options[0].strDefault = "b";
    command.arguments = {Option({"WHAT"}, "What to do"), Option({"REST"}, "")};
    command.strFooter = "program says nothing of itself, or next to nothing\n"
                        "consolectl that-is-an-example-and-stays --as-it-is\n"
                        "printf 'so does this one'; consolectl do -\n"
                        "  so does this, which is indented, whatever its length";
    EXPECT_EQ("Usage: program do [OPTION]... [WHAT] [REST]\n"
              "\n"
              "Does what the words say that it does,\n"
              "one after another\n"
              "\n"
              "Arguments:\n"
              "  WHAT  What to do\n"
              "\n"
              "Options:\n"
              "  -n, --name NAME  Whose name it is, of\n"
              "                   all that there are\n"
              "                   (default b)\n"
              "      --a-name-that-is-longer-than-a-column\n"
              "                   Another one of those\n"
              "                   that there are\n"
              "\n"
              "program says nothing of itself, or next\n"
              "to nothing\n"
              "consolectl that-is-an-example-and-stays --as-it-is\n"
              "printf 'so does this one'; consolectl do -\n"
              "  so does this, which is indented, whatever its length\n",
              HelpText(command, 40));
}

TEST(HelpText, ListsSubcommandsButThoseThatAreHidden)
{
    stCommand program = Command("program", "A program");
    program.subcommands = {Command("program do", "Do it"), Command("program undo", "Undo it")};
    program.subcommands[1].bHidden = true;
    EXPECT_EQ("Usage: program SUBCOMMAND ...\n\nA program\n\nSubcommands:\n  do  Do it\n", HelpText(program, 80));
}

} // namespace
