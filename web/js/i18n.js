// The page's words in English and Chinese. The language follows the
// browser's until the user picks one on the page (kept in localStorage).

export const STRINGS = {
    en: {
        title: 'Radar module',
        module: 'Module',
        language: 'Language',
        'state.opening': 'opening',
        'state.open': 'open',
        'state.silent': 'silent: no reports',
        'state.lost': 'lost: reconnecting',
        'state.busy': 'busy: port in use, retrying',
        'state.no-permission': 'no permission for the port',
        'state.wrong-baud': 'wrong baud rate',
        'state.unknown': 'unknown',
        'stream.connecting': 'Connecting…',
        'stream.open': 'Live',
        'stream.reconnecting': 'Connection lost: reconnecting…',
        'stream.closed': 'Not connected',
        detect: 'Detection',
        exclude: 'Exclusion',
        unset: 'Not set',
        occupied: 'Occupied',
        area: 'Area',
        type: 'Type',
        from: 'Start (X,Y)',
        to: 'End (X,Y)',
        apply: 'Apply',
        reset: 'Reset',
        cancelArea: 'Cancel area',
        cancelAll: 'Cancel all areas',
        editHint: 'Drag on the plane to draw the area; drag it to move, its handles to resize.',
        notApplied: 'Not applied yet.',
        walk: 'Walk an area',
        walkStart: 'Start walking',
        walkStop: 'Stop',
        walkHint: 'Walk along the edges of the space, then press Stop. {0} points.',
        walkNone: 'Too few points for an area: walk again.',
        walkProposed: 'Proposed {0}. Adjust it, then Apply.',
        display: 'Display',
        displayArea: 'Area mode',
        displayTrack: 'Tracking mode',
        trails: 'Trails',
        xRange: 'X range',
        seconds: '{0} s',
        backup: 'Backup',
        download: 'Download',
        restore: 'Restore',
        restoreChoose: 'Choose a file…',
        restoreChanges: 'Restoring this file changes:',
        restoreSame: 'The file holds what the module holds.',
        applyFile: 'Apply file',
        discard: 'Discard',
        sending: 'Sending…',
        held: 'The module holds area {0}: {1}.',
        truncated: 'Kept to the decimetre: {0}.',
        cancelled: 'Done. The module holds: {0}.',
        stale: 'The areas were changed elsewhere since you started; nothing was sent.',
        changedElsewhere: 'The areas were changed elsewhere while you edited.',
        reload: 'Reload areas',
        failed: 'Not done: {0}',
        notOpen: 'The module is not open; nothing was sent.',
        noModules: 'No module.',
        targets: 'Targets',
        noTargets: 'Nobody seen',
        badNumber: 'Enter numbers for both corners.',
        badRange: '{0} must be between {1} and {2} m.',
        emptyRect: 'The area needs a width and a height.',
        confirmAll: 'Cancel all three areas?',
        fileError: 'Not an area file: {0}',
        unauthorised: 'No access: open the link that orv-cli serve printed (it carries the token).',
    },
    zh: {
        title: '雷达模块',
        module: '模块',
        language: '语言',
        'state.opening': '正在打开',
        'state.open': '已连接',
        'state.silent': '无数据',
        'state.lost': '已断开：正在重连',
        'state.busy': '端口被占用：正在重试',
        'state.no-permission': '无权访问端口',
        'state.wrong-baud': '波特率错误',
        'state.unknown': '未知',
        'stream.connecting': '正在连接…',
        'stream.open': '实时',
        'stream.reconnecting': '连接中断：正在重连…',
        'stream.closed': '未连接',
        detect: '检测区域',
        exclude: '屏蔽区域',
        unset: '未设置',
        occupied: '有目标区域',
        area: '区域',
        type: '区域类型',
        from: '起点(X,Y)',
        to: '终点(X,Y)',
        apply: '应用',
        reset: '还原',
        cancelArea: '撤销区域',
        cancelAll: '撤销所有区域',
        editHint: '在坐标图上拖动画出区域；拖动区域可移动，拖动手柄可改变大小。',
        notApplied: '尚未应用。',
        walk: '走动框选',
        walkStart: '开始走动',
        walkStop: '停止',
        walkHint: '沿区域边缘走一圈，然后按停止。已记录 {0} 个点。',
        walkNone: '点太少，无法确定区域：请重新走动。',
        walkProposed: '建议区域 {0}。可调整后应用。',
        display: '显示方式',
        displayArea: '区域模式',
        displayTrack: '跟踪模式',
        trails: '轨迹',
        xRange: 'X轴范围',
        seconds: '{0} 秒',
        backup: '备份',
        download: '下载',
        restore: '恢复',
        restoreChoose: '选择文件…',
        restoreChanges: '恢复此文件将改变：',
        restoreSame: '文件内容与模块相同。',
        applyFile: '应用文件',
        discard: '放弃',
        sending: '正在发送…',
        held: '模块保存的区域 {0}：{1}。',
        truncated: '按分米截取：{0}。',
        cancelled: '完成。模块保存：{0}。',
        stale: '区域已在别处被修改，未发送。',
        changedElsewhere: '编辑期间区域已在别处被修改。',
        reload: '重新载入区域',
        failed: '未完成：{0}',
        notOpen: '模块未连接，未发送。',
        noModules: '没有模块。',
        targets: '目标',
        noTargets: '未检测到目标',
        badNumber: '请为两个角输入数字。',
        badRange: '{0} 应在 {1} 到 {2} 米之间。',
        emptyRect: '区域需要宽度和高度。',
        confirmAll: '撤销全部三个区域？',
        fileError: '不是区域文件：{0}',
        unauthorised: '无访问权限：请打开 orv-cli serve 打印的链接（其中含有令牌）。',
    },
};

// "zh" for a browser that prefers Chinese, else "en".
export function pickLanguage(languages) {
    for (const l of languages || []) {
        const tag = String(l).toLowerCase();
        if (tag.startsWith('zh'))
            return 'zh';
        if (tag.startsWith('en'))
            return 'en';
    }
    return 'en';
}

export class I18n {
    constructor(language = 'en') {
        this.language = STRINGS[language] ? language : 'en';
    }

    setLanguage(language) {
        if (STRINGS[language])
            this.language = language;
    }

    // The text of key with {0}, {1}... replaced by args; the English text
    // when the language has none, the key itself when neither has.
    t(key, ...args) {
        const text = STRINGS[this.language][key] ?? STRINGS.en[key] ?? key;
        return text.replace(/\{(\d+)\}/g, (m, i) => (args[i] !== undefined ? String(args[i]) : m));
    }

    // Fills the elements that name a key: data-i18n (text), data-i18n-label
    // (aria-label and title).
    apply(root) {
        root.documentElement && (root.documentElement.lang = this.language === 'zh' ? 'zh-CN' : 'en');
        for (const el of root.querySelectorAll('[data-i18n]'))
            el.textContent = this.t(el.dataset.i18n);
        for (const el of root.querySelectorAll('[data-i18n-label]')) {
            el.setAttribute('aria-label', this.t(el.dataset.i18nLabel));
            el.title = this.t(el.dataset.i18nLabel);
        }
    }
}
