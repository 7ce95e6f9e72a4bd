// SPDX-License-Identifier: GPL-2.0
/*
 * A SCSI host with one small disk, hung below a chosen PCI function, for the
 * VM test bed. QEMU's SCSI adapters have no power-management capability, so
 * a registration that succeeds needs an adapter that has one: any function
 * with it (a network card, say) becomes the disk's adapter, and
 * SCSI_IOCTL_GET_PCI on the disk names that function, as it would name a
 * real HBA. parent=DDDD:BB:DD.F[,...]: one host and disk below each. The disk is 2 MiB of zeros with an MBR of
 * one partition, so that partitions are covered too.
 */
#include <linux/module.h>
#include <linux/pci.h>
#include <asm/unaligned.h>
#include <scsi/scsi_cmnd.h>
#include <scsi/scsi_device.h>
#include <scsi/scsi_host.h>
#include <scsi/scsi_proto.h>

#define SECTORS 4096u
#define MAX_HOSTS 4

static char *parent[MAX_HOSTS];
static int parents;
module_param_array(parent, charp, &parents, 0444);

static struct Scsi_Host *hosts[MAX_HOSTS];
static struct pci_dev *pdevs[MAX_HOSTS];

static void reply(struct scsi_cmnd *cmd, const void *data, size_t len)
{
	len = min_t(size_t, len, scsi_bufflen(cmd));
	scsi_sg_copy_from_buffer(cmd, data, len);
	scsi_set_resid(cmd, scsi_bufflen(cmd) - len);
}

static void inquiry(struct scsi_cmnd *cmd)
{
	static const u8 std[36] = { TYPE_DISK, 0, 5, 2, 31, 0, 0, 0,
				    'S', 'L', 'O', 'T', 'A', 'G', ' ', ' ',
				    'P', 'M', ' ', 'D', 'I', 'S', 'K', ' ',
				    ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
				    '1', ' ', ' ', ' ' };
	static const u8 pages[5] = { TYPE_DISK, 0, 0, 1, 0 };

	if (!(cmd->cmnd[1] & 1))
		reply(cmd, std, sizeof(std));
	else if (cmd->cmnd[2] == 0)
		reply(cmd, pages, sizeof(pages));
	else
		scsi_build_sense(cmd, 0, ILLEGAL_REQUEST, 0x24, 0);
}

static void read_capacity(struct scsi_cmnd *cmd, bool rc16)
{
	u8 data[32] = { 0 };

	if (rc16) {
		put_unaligned_be64(SECTORS - 1, data);
		put_unaligned_be32(512, data + 8);
		reply(cmd, data, 32);
	} else {
		put_unaligned_be32(SECTORS - 1, data);
		put_unaligned_be32(512, data + 4);
		reply(cmd, data, 8);
	}
}

/* Zeros, but sector 0 holds an MBR with one Linux partition from LBA 8. */
static void read_sectors(struct scsi_cmnd *cmd)
{
	u64 lba = scsi_get_lba(cmd);
	u8 *mbr;

	scsi_set_resid(cmd, 0);
	sg_zero_buffer(scsi_sglist(cmd), scsi_sg_count(cmd), scsi_bufflen(cmd), 0);
	if (lba != 0)
		return;
	mbr = kzalloc(512, GFP_ATOMIC);
	if (!mbr) {
		scsi_build_sense(cmd, 0, HARDWARE_ERROR, 0, 0);
		return;
	}
	mbr[446 + 4] = 0x83;
	put_unaligned_le32(8, mbr + 446 + 8);
	put_unaligned_le32(SECTORS - 8, mbr + 446 + 12);
	mbr[510] = 0x55;
	mbr[511] = 0xaa;
	scsi_sg_copy_from_buffer(cmd, mbr, 512);
	kfree(mbr);
}

static int queuecommand(struct Scsi_Host *shost, struct scsi_cmnd *cmd)
{
	static const u8 mode_header[4] = { 3, 0, 0, 0 };

	cmd->result = 0;
	switch (cmd->cmnd[0]) {
	case TEST_UNIT_READY:
	case SYNCHRONIZE_CACHE:
	case WRITE_6:
	case WRITE_10:
	case WRITE_16:
		break;
	case INQUIRY:
		inquiry(cmd);
		break;
	case READ_CAPACITY:
		read_capacity(cmd, false);
		break;
	case SERVICE_ACTION_IN_16:
		if ((cmd->cmnd[1] & 0x1f) == SAI_READ_CAPACITY_16)
			read_capacity(cmd, true);
		else
			scsi_build_sense(cmd, 0, ILLEGAL_REQUEST, 0x20, 0);
		break;
	case MODE_SENSE:
		reply(cmd, mode_header, sizeof(mode_header));
		break;
	case READ_6:
	case READ_10:
	case READ_16:
		read_sectors(cmd);
		break;
	default:
		scsi_build_sense(cmd, 0, ILLEGAL_REQUEST, 0x20, 0);
	}
	scsi_done(cmd);
	return 0;
}

static struct scsi_host_template template = {
	.module = THIS_MODULE,
	.name = "pm_disk",
	.proc_name = "pm_disk",
	.queuecommand = queuecommand,
	.this_id = -1,
	.can_queue = 1,
	.cmd_per_lun = 1,
	.sg_tablesize = SG_ALL,
	.max_sectors = 128,
};

static void remove_hosts(void)
{
	int i;

	for (i = 0; i < MAX_HOSTS; ++i) {
		if (hosts[i]) {
			scsi_remove_host(hosts[i]);
			scsi_host_put(hosts[i]);
		}
		pci_dev_put(pdevs[i]);
	}
}

static int add_host(int i)
{
	unsigned int domain, bus, dev, fn;
	struct Scsi_Host *host;
	int err;

	if (sscanf(parent[i], "%x:%x:%x.%x", &domain, &bus, &dev, &fn) != 4)
		return -EINVAL;
	pdevs[i] = pci_get_domain_bus_and_slot(domain, bus, PCI_DEVFN(dev, fn));
	if (!pdevs[i])
		return -ENODEV;
	host = scsi_host_alloc(&template, 0);
	if (!host)
		return -ENOMEM;
	host->max_id = 1;
	host->max_lun = 1;
	host->max_channel = 0;
	err = scsi_add_host(host, &pdevs[i]->dev);
	if (err) {
		scsi_host_put(host);
		return err;
	}
	hosts[i] = host;
	scsi_scan_host(host);
	return 0;
}

static int __init pm_disk_init(void)
{
	int i, err = 0;

	for (i = 0; i < parents && !err; ++i)
		err = add_host(i);
	if (err)
		remove_hosts();
	return err;
}

module_init(pm_disk_init);
module_exit(remove_hosts);
MODULE_DESCRIPTION("a SCSI disk below chosen PCI functions, for tests");
MODULE_LICENSE("GPL");
