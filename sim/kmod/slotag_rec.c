// SPDX-License-Identifier: GPL-2.0
/*
 * A recording stand-in for the hot-plug driver behind /dev/slotag, for the
 * VM test bed. It takes the two requests from 64-bit and 32-bit callers,
 * copies every block it is handed (the lists through their 32-bit hba_list
 * addresses, as the real driver must) and keeps the bytes in debugfs under
 * slotag/ with the file names of the simulator's state directory
 * (NNN.result, NNN-set_hba.bin, NNN-set_shpc.bin,
 * NNN-set_shpc-hba_list-K.bin), so `slotag-sim dump` decodes them unchanged.
 *
 * reject=set_hba|set_shpc with reject_errno, err_num and device_err_num
 * makes that request fail after writing the numbers into the caller's block.
 */
#include <linux/compat.h>
#include <linux/debugfs.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/slab.h>
#include <linux/uaccess.h>
#include <linux/vmalloc.h>

#define SET_HBA 0xC004FE00u
#define SET_SHPC 0xC004FE01u
#define MAX_RECORDS 65536u
#define HBA_HEADER 8
#define HBA_INFO 36
#define SHPC_HEADER 20
#define SHPC_INFO 76
#define SHPC_HBA_LIST 72

static char *reject = "";
module_param(reject, charp, 0644);
static int reject_errno = 5;
module_param(reject_errno, int, 0644);
static int err_num;
module_param(err_num, int, 0644);
static int device_err_num;
module_param(device_err_num, int, 0644);

static DEFINE_MUTEX(lock);
static struct dentry *dir;
static unsigned int requests;

/* Every recorded file; its bytes live until the module goes. */
struct record {
	struct list_head link;
	struct debugfs_blob_wrapper blob;
};
static LIST_HEAD(records);

/* Takes data over; false (data freed) when it cannot be kept. */
static bool keep(const char *name, void *data, size_t size)
{
	struct record *r = kzalloc(sizeof(*r), GFP_KERNEL);

	if (!r) {
		kvfree(data);
		return false;
	}
	r->blob.data = data;
	r->blob.size = size;
	list_add(&r->link, &records);
	debugfs_create_blob(name, 0444, dir, &r->blob);
	return true;
}

static void __user *user_address(u32 address)
{
	return (void __user *)(uintptr_t)address;
}

/* A counted block: header, then count records. Kept under name. */
static int copy_block(void __user *from, size_t header, size_t record, const char *name,
		      u8 **out)
{
	u32 count;
	size_t size;
	u8 *bytes;

	*out = NULL;
	if (copy_from_user(&count, from, sizeof(count)))
		return -EFAULT;
	if (count > MAX_RECORDS)
		return -EINVAL;
	size = header + record * count;
	bytes = kvzalloc(size, GFP_KERNEL);
	if (!bytes)
		return -ENOMEM;
	if (copy_from_user(bytes, from, size)) {
		kvfree(bytes);
		return -EFAULT;
	}
	if (!keep(name, bytes, size))
		return -ENOMEM;
	*out = bytes;
	return 0;
}

static const char *errno_name(int e)
{
	switch (e) {
	case EIO: return "EIO";
	case ENXIO: return "ENXIO";
	case ENOMEM: return "ENOMEM";
	case EFAULT: return "EFAULT";
	case EBUSY: return "EBUSY";
	case ENODEV: return "ENODEV";
	case EINVAL: return "EINVAL";
	case ENOSPC: return "ENOSPC";
	case EPERM: return "EPERM";
	default: return "E?";
	}
}

static long request(unsigned int cmd, void __user *arg, bool arg_fits)
{
	const bool table = cmd == SET_SHPC;
	const char *what = table ? "set_shpc" : "set_hba";
	char name[48], *result;
	u8 *block = NULL;
	int err = 0;
	u32 i;

	snprintf(name, sizeof(name), "%03u-%s.bin", ++requests, what);
	/* The argument is a 32-bit address in the caller's memory. */
	if (!arg_fits)
		err = -EFAULT;
	else if (table)
		err = copy_block(arg, SHPC_HEADER, SHPC_INFO, name, &block);
	else
		err = copy_block(arg, HBA_HEADER, HBA_INFO, name, &block);
	for (i = 0; !err && table && i < *(u32 *)block; ++i) {
		u32 list = *(u32 *)(block + SHPC_HEADER + i * SHPC_INFO + SHPC_HBA_LIST);
		u8 *ignored;

		if (!list)
			continue;
		snprintf(name, sizeof(name), "%03u-set_shpc-hba_list-%u.bin", requests, i + 1);
		err = copy_block(user_address(list), HBA_HEADER, HBA_INFO, name, &ignored);
	}
	if (!err && !strcmp(reject, what)) {
		s32 fields[2] = { err_num, device_err_num };

		err = -reject_errno;
		/* HbaInfoList.err_num at 4; ShpcInfoTable's two at 12 and 16 */
		if (copy_to_user((u8 __user *)arg + (table ? 12 : 4), fields, table ? 8 : 4))
			err = -EFAULT;
	}
	if (!err)
		result = kasprintf(GFP_KERNEL, "%s 0x%08x returned 0\n", table ? "SET_SHPC" : "SET_HBA", cmd);
	else if (table)
		result = kasprintf(GFP_KERNEL, "SET_SHPC 0x%08x returned -1 errno=%s err_num=%d device_err_num=%d\n",
				   cmd, errno_name(-err), err_num, device_err_num);
	else
		result = kasprintf(GFP_KERNEL, "SET_HBA 0x%08x returned -1 errno=%s err_num=%d\n", cmd,
				   errno_name(-err), err_num);
	snprintf(name, sizeof(name), "%03u.result", requests);
	if (result)
		keep(name, result, strlen(result));
	return err;
}

static long dispatch(unsigned int cmd, void __user *arg, bool arg_fits)
{
	long ret;

	if (cmd != SET_HBA && cmd != SET_SHPC)
		return -ENOTTY;
	mutex_lock(&lock);
	ret = request(cmd, arg, arg_fits);
	mutex_unlock(&lock);
	return ret;
}

static long native_ioctl(struct file *f, unsigned int cmd, unsigned long arg)
{
	return dispatch(cmd, (void __user *)arg, arg <= U32_MAX);
}

#ifdef CONFIG_COMPAT
static long compat_request(struct file *f, unsigned int cmd, unsigned long arg)
{
	return dispatch(cmd, compat_ptr(arg), true);
}
#endif

static const struct file_operations fops = {
	.owner = THIS_MODULE,
	.unlocked_ioctl = native_ioctl,
#ifdef CONFIG_COMPAT
	.compat_ioctl = compat_request,
#endif
};

static struct miscdevice device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "slotag",
	.fops = &fops,
	.mode = 0600,
};

static int __init slotag_rec_init(void)
{
	int err;

	dir = debugfs_create_dir("slotag", NULL);
	err = misc_register(&device);
	if (err)
		debugfs_remove_recursive(dir);
	return err;
}

static void __exit slotag_rec_exit(void)
{
	struct record *r, *next;

	misc_deregister(&device);
	debugfs_remove_recursive(dir);
	list_for_each_entry_safe(r, next, &records, link) {
		kvfree(r->blob.data);
		kfree(r);
	}
}

module_init(slotag_rec_init);
module_exit(slotag_rec_exit);
MODULE_DESCRIPTION("recording /dev/slotag for tests");
MODULE_LICENSE("GPL");
