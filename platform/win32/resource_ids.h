// Resource numbers of the Windows program (menu, dialogs, icons), shared by
// the resource script and the code.
#pragma once

#define kAboutDialog 103
#define kMenuAbout 104
#define kMenuExit 105
#define kMainMenu 109
#define kIconLarge 109
#define kIconSmall 158
