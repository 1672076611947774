#pragma once

#include <memory>
#include <string>

#include "common/Program.h"

// What the commands of this program share.
struct Tool : tools::Session {};

// Each adds its command to the program.
void addAdd(CLI::App& app, Tool& tool);
void addCat(CLI::App& app, Tool& tool);
void addCheck(CLI::App& app, Tool& tool);
void addComment(CLI::App& app, Tool& tool);
void addCompact(CLI::App& app, Tool& tool);
void addCreate(CLI::App& app, Tool& tool);
void addExtract(CLI::App& app, Tool& tool);
void addInfo(CLI::App& app, Tool& tool);
void addList(CLI::App& app, Tool& tool);
void addProp(CLI::App& app, Tool& tool);
void addRemove(CLI::App& app, Tool& tool);
void addType(CLI::App& app, Tool& tool);
