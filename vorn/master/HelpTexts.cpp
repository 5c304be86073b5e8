#include "vorn/master/HelpTexts.h"

#include <array>

namespace vorn {

namespace {

// The wording, the spacing and the slips are the daemon's vocabulary: clients compare them.
// clang-format off
constexpr std::array<const char*, 69> kQuickHelp = {
    "VORN quick HELP:",
    " ",
    "***** COMMANDS OF CAE INTERFACE *****",
    "--Driver commands--",
    " - DRVVER             shows driver version",
    " - DISCOVER           shows discover table",
    " - FORCEDISCOVER      rediscovers cards, and shows discover table",
    " - POLLSTATE          shows polling states",
    " - ENABLEPOLL         enables gblobal polling",
    " - DISABLEPOLL        disables global polling",
    " - POLLON:x           activates polling on the card at address x  (x=0..F)",
    " - POLLOFF:x          deactivates polling on the card at address x  (x=0..F)",
    " - REBOOT:x           reboots the card at address x  (x=0..F)",
    " - IOEXAMPLES         displays some IO programming examples",
    " - SPEED=ppp          sets working loop speed of vorn in percent (ppp=1..100)",
    " - EXIT               exits from CAE interface",
    " ",
    "--Digital input card commands--",
    " - GETLASTINPST:x=b   gets last input state at address x (x=0..F) in block b (b=0..1)",
    " ",
    "--Analogue input card commands--",
    " - GETANMASK:x        shows analogue channel mask at address x  (x=0..F)",
    " - SETANMASK:x=mm     sets analogue channel mask at address x  (x=0..F) (mm=00..3F) ",
    " - STOREANMASK:x      stores analogue channel mask at address x (x=0..F)",
    " - GETLASTINPST:x=b   gets last input state at address x (x=0..F) in block b (b=0..5)",
    " ",
    "--LCD driver card commands--",
    " - LCDINITLIGHT:x=ss  sets LCD backlight ON and OFF when LCD driver card boots at address x  (x=0..F) (ss=ON/OFF)",
    " - LCDSELFTEST:x=ss   sets LCD SELF TEST message displayed or hidden when card boots at address x  (x=0..F) (ss=ON/OFF)",
    " ",
    "--RC servo controller card commands--",
    " - STORESRVPOS:x      stores current servo positions at address x  (x=0..F)",
    " - MOVESTRPOS:x       moves servos to last stored positions at address x  (x=0..F)",
    " - SETSCpc:x=vv       sets end position parameters on channel c at address x  (x=0..F) (p=A/B) (c=0..5) (vv=00..FF)",
    " - GETSCpc:x          gets end position parameters on channel c at address x  (x=0..F) (p=A/B) (c=0..5)",
    " ",
    "--DC motor controller card commands--",
    " - SETMSRp:x=vv       sets silent range on channel p at address x  (x=0..F) (p=0..2) (vv=00 or 01..20)",
    " - GETMSRp:x          reads and shows silent range on channel p at address x  (x=0..F) (p=0..2)",
    " - STOREMSRS:x        stores all current silent ranges at  address x  (x=0..F)",
    "                      channel switchs to manual mode, when vv=00 (use control byte!)",
    "***** END OF CAE INTERFACE COMMAND LIST *****",
    " ",
    "***** COMMANSDS OF IO INTERFACE *****",
    "--Driver commands--",
    " - EXIT               exits from IO interface",
    " ",
    "--Block device commands--",
    "- Example: aAbBdDD",
    "    A is address of the card  (A=0..F)",
    "    B is number of the block  (B=0..7)",
    "    DD is block data  (DD=00..FF)",
    " ",
    "--Stream device commands--",
    " - Example:  aAstream",
    "    A is address of the card  (A=0..F)",
    " ",
    "   LCD streams:",
    "    - lPApXXYYtTEXT    displays TEXT on LCD at position XX,YY",
    "    - lCL              clears LCD display",
    "    - lLO              switches on LCD backlight",
    "    - lLF              switches off LCD backlight",
    "    - lCO              switches on LCD cursor",
    "    - lCF              switches off LCD cursor",
    "    - lBO              switches on LCD cursor blinking",
    "    - lBF              switches off LCD cursor blinking",
    "   IR remote controller streams",
    "    - sHSH1H2H3....Hn  sends hexa stream via IR (H1..Hn=00..FF) (n max 23)",
    "***** END OF IO INTERFACE COMMAND LIST *****",
};

constexpr std::array<const char*, 22> kIoExamples = {
    "BLOCK DEVICE OUTPUT EXAMPLES:",
    "1. To switch on led 2 in block 1 on digital out card addressed to 0x5:",
    "     Type command 'a5b1dFB<enter>' into IO interface",
    "2. To switch off led 2 in block 1 on digital out card addressed to 0x5:",
    "     Type command 'a5b1dFF<enter>' into IO interface",
    "3. To move servo at channel 4 to middle position on RC servo controller card addressed to 0x0:",
    "     Type command 'a0b4d80<enter>' into IO interface: ",
    "STREAM DEVICE OUTPUT EXAMPLES:",
    "1. To clear LCD (attached to controller card addressed at 0xE) and display ",
    "   'Tail of the cat' at 4th position in second line:",
    "     First type command 'aElCL<enter>' into IO interface",
    "     Than type command 'aElPAp0301tTail of the cat<enter>' into IO interface",
    "2. To send stream 'COCKROACH' via IRRC card addressed to 0x9:",
    "     Type command 'a9sHS434F434B524F414348<enter>' into IO interface:",
    "BLOCK DEVICE INPUT EXAMPLES:",
    "1. If you push button 6 in block 0 on digital input card adressed to 0x3:",
    "     Input change comes on IO interface: a3b0d40",
    "2. If you release button 6 in block 0 on digital input card adressed to 0x3:",
    "    Input change comes on IO interface: a3b0d00",
    "3. Turn the potentiometer connected to channel 3 from one end position to another one, on",
    "   analogue input card adressed to 0xF:",
    "    To have changes on IO interface: aFb3d00 ... aFb3d20 ........... aFb3dFF",
};
// clang-format on

}  // namespace

std::span<const char* const> QuickHelp() {
  return kQuickHelp;
}

std::span<const char* const> IoExamples() {
  return kIoExamples;
}

}  // namespace vorn
