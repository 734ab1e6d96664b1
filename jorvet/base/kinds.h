/* The kinds of link, as JVGetInstance takes them and as device records name them, and how many devices a list holds. C
 * and C++. */
#ifndef JORVET_BASE_KINDS_H
#define JORVET_BASE_KINDS_H

#define JV_KIND_FTDI 0u
#define JV_KIND_CYPRESS 1u
#define JV_KIND_NONE 0xFFu /* in records only: no device */

#define JV_MAX_INDEX 255u   /* the last place in a list that a connect can name */
#define JV_MAX_DEVICES 255u /* the largest number of devices that JVGetComInfoList can report */

#endif
