#pragma once

#include <memory>
#include <string>

#include "common/Program.h"

// What the commands of this program share.
struct Tool : tools::Session {};

// Each adds its command to the program.
void addAdd(tools::Command& program, Tool& tool);
void addCat(tools::Command& program, Tool& tool);
void addCheck(tools::Command& program, Tool& tool);
void addComment(tools::Command& program, Tool& tool);
void addCompact(tools::Command& program, Tool& tool);
void addCreate(tools::Command& program, Tool& tool);
void addExtract(tools::Command& program, Tool& tool);
void addInfo(tools::Command& program, Tool& tool);
void addList(tools::Command& program, Tool& tool);
void addProp(tools::Command& program, Tool& tool);
void addRemove(tools::Command& program, Tool& tool);
void addType(tools::Command& program, Tool& tool);
